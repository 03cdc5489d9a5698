#include "HostOptions.h"

#include "LogLevel.h"

#include <set>

namespace Amhost {

const char* HostOptions::usage() {
  return R"(usage: amhost --model FILE [OPTION...] [COMMAND [; COMMAND]...]

Loads the access-management component into the management framework stand-in on the model FILE
and runs the commands: those given after the options, separated by ";" as a word of its own
(quote it for the shell: ';'), or else one per line from standard input. Committed changes are
written back to FILE, so a later run starts from them.

options:
  --model FILE             the XML model (classes and objects); required
  --component-config FILE  the component's configuration text, handed to pymLCMinit
                           (default: the component's defaults, but start waits up to 30 s
                           for the initial configuration: ldapInitConfigTimeout 30)
  --library PATH           the component library (default: the one that came with amhost)
  --crypto-key HEX         64 hex digits for the framework's crypto (default: the demo key)
  --log-level N            print log lines at or below N to standard error: 3 errors, 4 warnings
                           (default), 5 notices, 6 info, 8 traces, -1 none
  --security-framework DIR a node with the security framework: the stand-ins of qivea and
                           acs-config-update first on PATH, the stand-in of its user-authorization
                           library loaded, and qivea's PSO clear path DIR, where the component
                           writes sec-acs (see files). ACS_CONFIG_UPDATE_HOME and SEC_ACS_HOME name
                           the stand-ins' directories (acs-config-update --help, sec_acs_api.h):
                           what they were asked, and the users whose roles the framework knows
  --help                   this text

commands:
  start | stop             start or stop the component
  set DN ATTRIBUTE [VALUE...]
                           write an attribute in the current transaction, one word per value
                           (no value: unset it); one is begun when none is current
  unset DN ATTRIBUTE       the same as set without values
  get DN ATTRIBUTE         the values as the current transaction sees them
  commit | abort           end the current transaction; commit saves the model FILE
  begin NAME | use NAME    begin a named transaction, or go back to an open one; it becomes
                           current (after commit or abort the unnamed one is)
  roles USER [METHOD]      the user's roles from the component, one per line (METHOD: LDAP);
                           when it refuses, everything the query logged (traces included)
                           is printed to standard error before the code
  show                     the committed LDAP configuration, the bind password as ****
  files                    what lies below the PSO clear path of --security-framework, one line
                           each: MODE GROUP PATH (mode in octal, path relative, "/" after
                           directories)
  encrypt TEXT             TEXT encrypted as the model stores bindPassword's password member
  log-level N              as --log-level
  help | quit

Values are written as the framework reads them: enumerations by name or number, booleans
true/false, references as DNs, structures as {member=value,...} (bindPassword:
{password=ENCRYPTED}). On standard input words are split at blanks; a word beginning with a
double quote runs to the next one (\" and \\ inside); lines beginning with # are ignored.
Messages the component gives the operator are printed as "operator: TEXT" (without its
"@qivnbi@" marker); a failure is printed to standard error as "error: REASON".

exit status:
  0  every command succeeded
  1  a command failed (the model, a DN, attribute or value was refused, or the component refused)
  2  usage error: bad option, unknown command or wrong number of words
  3  the model, the component file or the library could not be loaded
Commands from the command line are checked before any runs and stop at the first failure; so
does standard input unless it is a terminal, where the session reports errors and goes on.
)";
}

bool HostOptions::parse(int argc, const char* const* argv, HostOptions& options, std::string& error) {
  int index = 1;
  for (; index < argc; ++index) {
    const std::string option = argv[index];
    if (option == "--") {
      ++index;
      break;
    }
    if (option.compare(0, 2, "--") != 0) break;
    if (option == "--help") {
      options.help = true;
      continue;
    }
    static const std::set<std::string> valued = {"--model", "--component-config", "--library", "--crypto-key",
                                                 "--log-level", "--security-framework"};
    if (valued.count(option) == 0) {
      error = "unknown option " + option;
      return false;
    }
    if (index + 1 == argc) {
      error = "option " + option + " needs a value";
      return false;
    }
    const std::string value = argv[++index];
    if (option == "--model") {
      options.modelFile = value;
    } else if (option == "--component-config") {
      options.componentConfigFile = value;
    } else if (option == "--library") {
      options.library = value;
    } else if (option == "--crypto-key") {
      options.cryptoKey = value;
    } else if (option == "--security-framework") {
      options.psoClearPath = value;
    } else {
      if (!LogLevel::parse(value, options.logLevel)) {
        error = "--log-level needs a number from -1 to 9, not \"" + value + "\"";
        return false;
      }
    }
  }
  if (options.help) return true;
  if (options.modelFile.empty()) {
    error = "--model FILE is required";
    return false;
  }
  options.commands = CommandWords::fromArguments(std::vector<std::string>(argv + index, argv + argc));
  return true;
}

}  // namespace Amhost
