#ifndef QIVEA_AUTHENTICATION_COMMAND_H
#define QIVEA_AUTHENTICATION_COMMAND_H

#include "QiveaHome.h"
#include "SpiRevision.h"

#include <string>
#include <vector>

namespace Qivea {

// "authentication ldap [--prepare] options..." and "authentication default [--prepare]": checks
// every option against the SPI revision and, without --prepare, keeps the applied
// configuration in <home>/authentication.state: "method=ldap" or "method=default", then one
// "key=value" line per option in the order given (key without "--", flags "=true", a bind
// password as "****", a password file by name only). "--prepare" is a dry run that changes
// nothing.
class AuthenticationCommand {
 public:
  AuthenticationCommand(const QiveaHome& home, const SpiRevision& revision) : _home(home), _revision(revision) {}

  // args without the leading "authentication". 0, or throws CommandFailure: GENERAL for a
  // method other than ldap or default ("unknown command"), INVALID_ARGUMENT for an option or
  // value the revision does not accept.
  int run(const std::vector<std::string>& args) const;

 private:
  // The state line of one option; a password file must be readable unless prepare.
  std::string stateLine(const std::string& arg, bool prepare) const;

  const QiveaHome& _home;
  SpiRevision _revision;
};

}  // namespace Qivea

#endif
