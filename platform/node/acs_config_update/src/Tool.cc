#include "Tool.h"

#include "FrameworkFile.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include <unistd.h>

namespace AcsConfigUpdate {

namespace {

const char kUsage[] =
    "Usage: acs-config-update --help\n"
    "       acs-config-update --register <method> -f <file>\n"
    "       acs-config-update --deregister <method>\n"
    "Registers an authentication method with the security framework.\n"
    "Methods: LdapAuthenticationMethod\n"
    "The file must be the framework's LDAP file: [GENERAL] with VERSION = ACS_IFREG-1, [SSSD] with\n"
    "ldap_uri, then [UAI_SERVICE_MODULE] naming the module.\n";

// The name scripts use: "help", "register" or "deregister"; empty for anything else.
std::string subcommandOf(const std::vector<std::string>& args) {
  if (args.empty()) return std::string();
  const std::string& first = args.front();
  return first == "--help" || first == "--register" || first == "--deregister" ? first.substr(2) : std::string();
}

}  // namespace

Tool::Tool(const ToolHome& home) : _home(home) {}

int Tool::run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) const {
  const std::string subcommand = subcommandOf(args);
  if (!subcommand.empty()) {
    std::this_thread::sleep_for(_home.delay(subcommand));
    _home.startGrandchild(subcommand);
    if (_home.hangs(subcommand)) {
      for (;;) ::pause();
    }
    int status = 0;
    if (_home.answerAsScripted(subcommand, out, err, status)) return status;
  }
  if (subcommand == "help" && args.size() == 1) {
    out << kUsage;
    return 0;
  }
  if (subcommand == "register" && args.size() == 4 && args[2] == "-f") return registerMethod(args[1], args[3], err);
  if (subcommand == "deregister" && args.size() == 2) return deregisterMethod(args[1], err);
  err << kUsage;
  return 2;
}

int Tool::registerMethod(const std::string& method, const std::string& configFile, std::ostream& err) const {
  if (!isKnownMethod(method, err)) return 1;
  std::ifstream file(configFile, std::ios::binary);
  if (!std::filesystem::is_regular_file(configFile) || !file) {
    err << "acs-config-update: cannot read configuration file " << configFile << '\n';
    return 1;
  }
  const std::string reason =
      FrameworkFile::check(std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()));
  if (!reason.empty()) {
    err << "acs-config-update: " << configFile << " is no LDAP framework file: " << reason << '\n';
    return 1;
  }
  _home.keepRegistration(method, configFile);
  return 0;
}

int Tool::deregisterMethod(const std::string& method, std::ostream& err) const {
  if (!isKnownMethod(method, err)) return 1;
  _home.clearRegistration(method);
  return 0;
}

bool Tool::isKnownMethod(const std::string& method, std::ostream& err) {
  if (method == "LdapAuthenticationMethod") return true;
  err << "acs-config-update: unknown method " << method << '\n';
  return false;
}

}  // namespace AcsConfigUpdate
