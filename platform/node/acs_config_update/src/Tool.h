#ifndef ACS_CONFIG_UPDATE_TOOL_H
#define ACS_CONFIG_UPDATE_TOOL_H

#include "ToolHome.h"

#include <ostream>
#include <string>
#include <vector>

namespace AcsConfigUpdate {

// The security framework's registration tool as a healthy node answers it, unless its home
// scripts another answer:
//   --help                                         usage on standard output, 0
//   --register LdapAuthenticationMethod -f <file>  1 when the file cannot be read or is no LDAP
//                                                  framework file (FrameworkFile), else 0
//   --deregister LdapAuthenticationMethod          0, registered or not
// An unknown method gives 1, any other command line the usage on standard error and 2.
class Tool {
 public:
  explicit Tool(const ToolHome& home);

  // The exit status for args (without the program name).
  int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) const;

 private:
  int registerMethod(const std::string& method, const std::string& configFile, std::ostream& err) const;
  int deregisterMethod(const std::string& method, std::ostream& err) const;
  // False, after a message, for a method the framework does not know.
  static bool isKnownMethod(const std::string& method, std::ostream& err);

  const ToolHome& _home;
};

}  // namespace AcsConfigUpdate

#endif
