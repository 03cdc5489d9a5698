// qivea: the node's external adaptation program, as a stand-in that tests script and a person
// can try the component with. See usage() below.

#include "AuthenticationCommand.h"
#include "AuthorizationCommand.h"
#include "CallLog.h"
#include "CommandFailure.h"
#include "Files.h"
#include "QiveaHome.h"
#include "Script.h"
#include "SpiRevision.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

const char USAGE[] =
    "usage: qivea <command> [arguments...]\n"
    "\n"
    "Stand-in for the node's external adaptation program. Commands:\n"
    "  spi-revision                    print the SPI revision ($QIVEA_SPI_REVISION, default 1.4.0)\n"
    "  pso clear                       create and print the PSO clear directory: $QIVEA_PSO_CLEAR,\n"
    "                                  default $QIVEA_HOME/pso/clear\n"
    "  authentication ldap [--prepare] [--uri=ldap[s]://host[:port]]... [--useTls] [--tls-mode=LDAPS|STARTTLS]\n"
    "      [--cipherFilter=...] [--useReferrals] --base-dn=... --login-attribute=... [--bind-dn=...]\n"
    "      [--bind-password=...|--password-file=...] [--tls-ca-certificate=...|--tls-ca-cert-directory=...]\n"
    "      [--tls-client-certificate=...] [--tls-client-key=...] [--nodeType=...]\n"
    "  authentication default [--prepare]\n"
    "                                  apply an authentication method; --prepare only checks it.\n"
    "                                  --cipherFilter and --password-file need revision 1.2,\n"
    "                                  --tls-ca-cert-directory 1.3, --useReferrals 1.4. The applied\n"
    "                                  configuration is kept in $QIVEA_HOME/authentication.state\n"
    "                                  (passwords masked).\n"
    "  authorization ldap search '<arguments>'\n"
    "                                  print the roles of --userId=<user> in <arguments>, from\n"
    "                                  $QIVEA_HOME/users (lines \"user:role1,role2\")\n"
    "\n"
    "Exit status: 0 done; 1 failure or unknown command; 2 no such user; 8 invalid option or value.\n"
    "\n"
    "$QIVEA_HOME (default /tmp/qivea-<uid>, created with mode 0700):\n"
    "  calls/<time>-<pid>    every call's arguments, each followed by a NUL byte\n"
    "  script/<key>/         a scripted answer replacing the command's own, key being the first two\n"
    "                        words (\"pso clear\") or the first word (\"spi-revision\"); files, all\n"
    "                        optional: leave-group, grandchild [seconds] (with grandchild-keeps-output,\n"
    "                        grandchild-leaves-group), delay-ms, stdout-bytes, stdout, stderr,\n"
    "                        unknown-command, hang, signal, exit\n"
    "  grandchild.pid        pid of the last grandchild a script started\n";

const unsigned PSO_DIRECTORY_MODE = 0755;

int dispatch(const Qivea::QiveaHome& home, const std::vector<std::string>& args) {
  using Qivea::CommandFailure;
  if (args.empty()) throw CommandFailure(CommandFailure::GENERAL, "no command given; see qivea --help");
  const std::string& command = args[0];
  const std::vector<std::string> rest(args.begin() + 1, args.end());
  if (command == "spi-revision") {
    if (!rest.empty()) throw CommandFailure(CommandFailure::INVALID_ARGUMENT, "spi-revision takes no arguments");
    Qivea::writeAll(STDOUT_FILENO, Qivea::SpiRevision::fromEnvironment().text() + "\n");
    return 0;
  }
  if (command == "pso" && rest.size() == 1 && rest[0] == "clear") {
    const char* named = std::getenv("QIVEA_PSO_CLEAR");
    const std::string directory = named != nullptr && *named != '\0' ? named : home.file("pso/clear");
    Qivea::makeDirectories(directory, PSO_DIRECTORY_MODE);
    Qivea::writeAll(STDOUT_FILENO, directory + "\n");
    return 0;
  }
  if (command == "authentication") {
    return Qivea::AuthenticationCommand(home, Qivea::SpiRevision::fromEnvironment()).run(rest);
  }
  if (command == "authorization") return Qivea::AuthorizationCommand(home).run(rest);
  throw CommandFailure(CommandFailure::GENERAL, "unknown command: " + command);
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
    std::fputs(USAGE, stdout);
    return 0;
  }
  try {
    const Qivea::QiveaHome home = Qivea::QiveaHome::fromEnvironment();
    Qivea::CallLog(home).record(args);
    if (const std::optional<Qivea::Script> script = Qivea::Script::find(home, args)) return script->play();
    return dispatch(home, args);
  } catch (const Qivea::CommandFailure& failure) {
    std::fprintf(stderr, "qivea: %s\n", failure.what());
    return failure.status();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "qivea: %s\n", e.what());
    return Qivea::CommandFailure::GENERAL;
  }
}
