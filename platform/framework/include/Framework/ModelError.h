#ifndef FRAMEWORK_MODEL_ERROR_H
#define FRAMEWORK_MODEL_ERROR_H

#include <stdexcept>
#include <string>

namespace Framework {

// A model document that cannot be used; what() is "<file>:<line>: <message>" ("<file>: <message>"
// when no line applies, line 0).
class ModelError : public std::runtime_error {
 public:
  ModelError(const std::string& file, unsigned long line, const std::string& message);

  const std::string& file() const;
  unsigned long line() const;

 private:
  std::string _file;
  unsigned long _line;
};

}  // namespace Framework

#endif
