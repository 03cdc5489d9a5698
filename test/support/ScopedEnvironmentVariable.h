#ifndef TEST_SCOPED_ENVIRONMENT_VARIABLE_H
#define TEST_SCOPED_ENVIRONMENT_VARIABLE_H

#include <cstdlib>
#include <string>

// Sets (or removes) an environment variable while the object lives, then restores the earlier
// value or removes the variable. Only while no other thread reads the environment.
class ScopedEnvironmentVariable {
 public:
  ScopedEnvironmentVariable(const std::string& name, const std::string& value) : _name(name) {
    remember();
    ::setenv(name.c_str(), value.c_str(), 1);
  }

  // Removes the variable.
  explicit ScopedEnvironmentVariable(const std::string& name) : _name(name) {
    remember();
    ::unsetenv(name.c_str());
  }

  ~ScopedEnvironmentVariable() {
    if (_wasSet) {
      ::setenv(_name.c_str(), _earlier.c_str(), 1);
    } else {
      ::unsetenv(_name.c_str());
    }
  }

  ScopedEnvironmentVariable(const ScopedEnvironmentVariable&) = delete;
  ScopedEnvironmentVariable& operator=(const ScopedEnvironmentVariable&) = delete;

 private:
  void remember() {
    const char* earlier = std::getenv(_name.c_str());
    _wasSet = earlier != nullptr;
    if (_wasSet) _earlier = earlier;
  }

  std::string _name;
  bool _wasSet;
  std::string _earlier;
};

#endif
