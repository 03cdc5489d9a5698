#include "QiveaSearchArguments.h"

#include "QiveaAuthenticationCommand.h"

#include <cstdio>

namespace QivAccessManagement {

namespace {

bool isControl(unsigned char c) { return c < 0x20 || c == 0x7f; }

}  // namespace

bool QiveaSearchArguments::isPassableUserName(const std::string& user) {
  if (!user.empty() && user[0] == '-') return false;
  for (const char c : user) {
    if (c == ' ' || isControl(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

std::string QiveaSearchArguments::printableUserName(const std::string& user) {
  std::string printable;
  for (const char c : user) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (isControl(byte) || c == '\\') {
      char escaped[5];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned>(byte));
      printable += escaped;
    } else {
      printable += c;
    }
  }
  return printable;
}

std::string QiveaSearchArguments::build(const LdapConfiguration& config, const std::string& user,
                                        bool tlsModeSupported) {
  std::string arguments = " --userId=" + user;
  arguments += " --filterType=" + std::to_string(static_cast<int>(config.filterType));
  if (config.filterType == FLEXIBLE && !config.filter.empty() && !config.type.empty())
    arguments += " --filter=" + config.filter + " --type=" + config.type;
  if (!config.nodeType.empty() && config.targetBasedAccessControl == UNLOCKED)
    arguments += " --nodeType=" + config.nodeType;
  if (!config.roleAliasesBaseDn.empty()) arguments += " --roleAliasesBaseDn=" + config.roleAliasesBaseDn;
  if (!config.bindDn.empty()) arguments += " --bindDn=" + config.bindDn;
  if (!config.bindPassword.empty()) arguments += " --bindPassword=" + config.bindPassword;
  if (config.useTls) {
    arguments += " --useTls";
    const std::string tlsMode = QiveaAuthenticationCommand::getTextForTlsMode(config.tlsMode);
    if (tlsModeSupported && !tlsMode.empty()) arguments += " " + tlsMode;
  }
  return arguments;
}

}  // namespace QivAccessManagement
