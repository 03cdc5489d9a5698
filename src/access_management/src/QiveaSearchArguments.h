#ifndef QIV_ACCESS_MANAGEMENT_QIVEA_SEARCH_ARGUMENTS_H
#define QIV_ACCESS_MANAGEMENT_QIVEA_SEARCH_ARGUMENTS_H

#include "LdapConfiguration.h"

#include <string>

namespace QivAccessManagement {

// The one argument of "qivea authorization ldap search": the options of a role query, each
// " --name=value", which qivea splits at blanks. Values go in as they are.
class QiveaSearchArguments {
 public:
  // Whether user can go into the argument as the value of --userId=: not when it would end the
  // value early or begin an option of its own (a blank or any control character, a leading "-").
  static bool isPassableUserName(const std::string& user);

  // user for a log line: every control character and backslash written as \xNN.
  static std::string printableUserName(const std::string& user);

  // The argument for user and config; tlsModeSupported: qivea took the TLS-mode probe.
  static std::string build(const LdapConfiguration& config, const std::string& user, bool tlsModeSupported);
};

}  // namespace QivAccessManagement

#endif
