#ifndef TEST_INTEGRATION_LIFECYCLE_TEST_H
#define TEST_INTEGRATION_LIFECYCLE_TEST_H

#include "LoadedComponentTest.h"

#include <Framework/ObjectImplementerRegistry.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

// The built library loaded with dlopen, initialised and started through its descriptor as the
// framework does, applying through the qivea stand-in.
class LifecycleTest : public LoadedComponentTest {
 protected:
  using Args = std::vector<std::string>;

  // What the component registers for, in order; the last only when an OrbelinFilter exists.
  static inline const std::vector<std::string> CLASS_PATHS = {
      "/ManagedElement/SystemFunctions/SecM/UserManagement/LdapAuthenticationMethod",
      "/ManagedElement/SystemFunctions/SecM/UserManagement/LdapAuthenticationMethod/Ldap",
      "/ManagedElement/SystemFunctions/SecM/UserManagement/LdapAuthenticationMethod/Ldap/Filter",
      "/ManagedElement/SystemFunctions/SecM/UserManagement/LdapAuthenticationMethod/Ldap/OrbelinFilter"};

  // A component file that sets only the start-up wait.
  static std::string componentFile(const std::string& timeoutSeconds) {
    return "<QivAccessManagementComponent><ldapInitConfigTimeout>" + timeoutSeconds +
           "</ldapInitConfigTimeout></QivAccessManagementComponent>";
  }

  explicit LifecycleTest(const std::string& model = "ldap20.xml") : LoadedComponentTest(model) {}

  void initialize(const std::string& config = componentFile("0")) { LoadedComponentTest::initialize(config); }

  PymReturnT start() { return descriptor->start(PymStateChangeStartup); }
  PymReturnT stop() { return descriptor->stop(PymStateChangeShutdown); }

  // The registry's calls of one operation ("register" or "unregister"), in order.
  std::vector<Framework::ImplementerCall> registrations(const std::string& operation) {
    std::vector<Framework::ImplementerCall> calls;
    for (const Framework::ImplementerCall& call : framework().objectImplementers().calls())
      if (call.operation == operation) calls.push_back(call);
    return calls;
  }

  std::vector<std::string> registeredPaths() {
    std::vector<std::string> paths;
    for (const Framework::ImplementerCall& call : registrations("register")) paths.push_back(call.classPath);
    return paths;
  }

  std::vector<Args> authenticationCalls() { return qivea.callsStartingWith("authentication"); }
};

#endif
