#include "AuthenticationCommand.h"

#include "CommandFailure.h"
#include "Files.h"

#include <algorithm>
#include <fstream>
#include <iterator>

namespace Qivea {

namespace {

const unsigned PUBLIC_FILE_MODE = 0644;
const char MASKED_PASSWORD[] = "****";

// The options of "authentication ldap" and the revision that brought each.
struct OptionRule {
  const char* name;
  bool takesValue;
  int major;
  int minor;
};

const OptionRule OPTION_RULES[] = {
    {"uri", true, 1, 0},
    {"useTls", false, 1, 0},
    {"tls-mode", true, 1, 0},
    {"cipherFilter", true, 1, 2},
    {"useReferrals", false, 1, 4},
    {"base-dn", true, 1, 0},
    {"login-attribute", true, 1, 0},
    {"bind-dn", true, 1, 0},
    {"bind-password", true, 1, 0},
    {"password-file", true, 1, 2},
    {"tls-ca-certificate", true, 1, 0},
    {"tls-ca-cert-directory", true, 1, 3},
    {"tls-client-certificate", true, 1, 0},
    {"tls-client-key", true, 1, 0},
    {"nodeType", true, 1, 0},
};

// Options without which there is nothing to authenticate against.
const char* const REQUIRED_OPTIONS[] = {"base-dn", "login-attribute"};

CommandFailure invalid(const std::string& text) { return CommandFailure(CommandFailure::INVALID_ARGUMENT, text); }

bool startsWith(const std::string& text, const std::string& prefix) { return text.compare(0, prefix.size(), prefix) == 0; }

const OptionRule* findRule(const std::string& name) {
  const auto found = std::find_if(std::begin(OPTION_RULES), std::end(OPTION_RULES),
                                  [&name](const OptionRule& rule) { return name == rule.name; });
  return found != std::end(OPTION_RULES) ? found : nullptr;
}

// Values are never echoed: one of them may be a password.
void checkValue(const std::string& name, const std::string& value) {
  if (value.find_first_of("\r\n") != std::string::npos) throw invalid("--" + name + " holds a line break");
  if (name == "uri" && !(startsWith(value, "ldap://") && value.size() > 7) &&
      !(startsWith(value, "ldaps://") && value.size() > 8)) {
    throw invalid("--uri must be ldap://host[:port] or ldaps://host[:port]");
  }
  if (name == "tls-mode" && value != "LDAPS" && value != "STARTTLS") throw invalid("--tls-mode must be LDAPS or STARTTLS");
}

}  // namespace

int AuthenticationCommand::run(const std::vector<std::string>& args) const {
  const std::string method = args.empty() ? "" : args[0];
  if (method != "ldap" && method != "default") {
    throw CommandFailure(CommandFailure::GENERAL, "unknown command: authentication " + method);
  }
  const bool prepare = std::find(args.begin() + 1, args.end(), "--prepare") != args.end();
  std::string state = "method=" + method + "\n";
  for (auto arg = args.begin() + 1; arg != args.end(); ++arg) {
    if (*arg == "--prepare") continue;
    if (method == "default") throw invalid("authentication default takes no option but --prepare");
    state += stateLine(*arg, prepare);
  }
  if (method == "ldap") {
    for (const char* required : REQUIRED_OPTIONS) {
      if (state.find("\n" + std::string(required) + "=") == std::string::npos) {
        throw invalid(std::string("authentication ldap needs --") + required + "=");
      }
    }
  }
  if (!prepare) writeFileAtomically(_home.file("authentication.state"), state, PUBLIC_FILE_MODE);
  return 0;
}

std::string AuthenticationCommand::stateLine(const std::string& arg, bool prepare) const {
  if (!startsWith(arg, "--")) throw invalid("not an option: " + arg.substr(0, arg.find('=')));
  const std::string::size_type equals = arg.find('=');
  const std::string name = arg.substr(2, equals == std::string::npos ? std::string::npos : equals - 2);
  const OptionRule* rule = findRule(name);
  if (rule == nullptr) throw invalid("unknown option --" + name);
  if (!_revision.isAtLeast(rule->major, rule->minor)) {
    throw invalid("option --" + name + " needs SPI revision " + std::to_string(rule->major) + "." +
                  std::to_string(rule->minor) + ", this is " + _revision.text());
  }
  if (!rule->takesValue) {
    if (equals != std::string::npos) throw invalid("--" + name + " takes no value");
    return name + "=true\n";
  }
  if (equals == std::string::npos) throw invalid("--" + name + " needs a value (--" + name + "=...)");
  const std::string value = arg.substr(equals + 1);
  checkValue(name, value);
  if (name == "bind-password") return name + "=" + MASKED_PASSWORD + "\n";
  // The dry run comes before the password file is written; the real run reads it.
  if (name == "password-file" && !prepare && !std::ifstream(value)) throw invalid("cannot read the password file " + value);
  return name + "=" + value + "\n";
}

}  // namespace Qivea
