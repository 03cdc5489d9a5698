#ifndef BENCH_LOADED_COMPONENT_H
#define BENCH_LOADED_COMPONENT_H

#include <Framework/ComponentLibrary.h>
#include <Framework/ManagementFramework.h>
#include <PymMwSpiAccessManagement.h>

#include <string>
#include <vector>

namespace Bench {

// The built component library loaded with dlopen into the framework stand-in and driven as a
// framework drives it: pymLCMinit, start and stop through the descriptor it registered, role
// queries through its offered table, pymLCMterminate. Every call is made on the calling thread,
// which acts as the framework's control thread. The framework must outlive the object.
class LoadedComponent {
 public:
  // Throws std::runtime_error when the library cannot be loaded.
  LoadedComponent(Framework::ManagementFramework& framework, const std::string& libraryPath);
  // Stops and terminates the component when it is still initialised, then unloads the library.
  ~LoadedComponent();
  LoadedComponent(const LoadedComponent&) = delete;
  LoadedComponent& operator=(const LoadedComponent&) = delete;

  // pymLCMinit with the component's configuration text. Throws std::runtime_error when it fails
  // or registers no component.
  void initialize(const char* config);
  // Each throws std::runtime_error with the code when the component answers other than 0.
  void start();
  void stop();
  void terminate();

  // The roles the component answers for user, in the order handed out; the array is given back
  // through freeRoles. Throws std::runtime_error with the code when the query is refused.
  std::vector<std::string> roles(const char* user) const;
  // getRoles' code for user; on 0, roles gets what it handed out.
  int answer(const char* user, std::vector<std::string>& roles) const;

 private:
  Framework::ManagementFramework& _framework;
  Framework::ComponentLibrary _library;
  PymMgmtSpiComponent_2* _descriptor;
  const PymMwSpiAccessManagement_2* _accessManagement;
};

}  // namespace Bench

#endif
