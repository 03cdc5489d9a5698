#ifndef QIVEA_AUTHORIZATION_COMMAND_H
#define QIVEA_AUTHORIZATION_COMMAND_H

#include "QiveaHome.h"

#include <string>
#include <vector>

namespace Qivea {

// "authorization ldap search '<arguments>'", the arguments being one single argument
// (" --userId=<user> --filterType=<n> ..."): prints the user's roles, comma-separated and
// without a line end, from <home>/users, whose lines read "user:role1,role2" ('#' starts a
// comment line).
class AuthorizationCommand {
 public:
  explicit AuthorizationCommand(const QiveaHome& home) : _home(home) {}

  // args without the leading "authorization". 0, or throws CommandFailure: NO_SUCH_USER for a
  // user not in the file (or no file), INVALID_ARGUMENT for a malformed command line.
  int run(const std::vector<std::string>& args) const;

 private:
  const QiveaHome& _home;
};

}  // namespace Qivea

#endif
