#ifndef QIV_ACCESS_MANAGEMENT_LDAP_METHOD_H
#define QIV_ACCESS_MANAGEMENT_LDAP_METHOD_H

#include <string>
#include <vector>

namespace QivAccessManagement {

// Registers the LDAP service module with the security framework through the framework's tool
// "acs-config-update", run by that bare name from PATH. Each call runs the tool and waits for
// it, 30 s at most; nothing is kept, so any thread may call.
class LdapMethod {
 public:
  virtual ~LdapMethod() = default;

  // True when "acs-config-update --help" exits with 0 or 1. False when it exits otherwise, or
  // when it cannot be run (logged as an error).
  bool isSecAaFwAvailable() const;

  // Registers the framework configuration file configPath. 0 on success, -1 when the tool
  // refused (its standard error is logged) or failed to run, -2 when the framework is not
  // available.
  int registerLdapServiceModule(const std::string& configPath) const;

  // As registerLdapServiceModule, for taking the registration back.
  int deregisterLdapServiceModule() const;

 private:
  // After the availability check, runs the tool with args: 0 on exit status 0, otherwise -1
  // after logging failureFormat (status, standard error) or, for a Poco::Exception,
  // exceptionFormat (its text).
  int changeRegistration(const std::vector<std::string>& args, const char* failureFormat,
                         const char* exceptionFormat) const;

  // Runs the tool, reading its output while it runs, and returns its exit status with up to
  // 8192 bytes of its standard error. A tool still running after 30 s is killed with its process
  // group, and its output is read no longer than that. Throws Poco::Exception when it cannot be
  // run, and Poco::TimeoutException when the 30 s ran out.
  static int runTool(const std::vector<std::string>& args, std::string& errorOutput);
};

}  // namespace QivAccessManagement

#endif
