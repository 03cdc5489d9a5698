// slapd-instance: runs a command next to a throw-away test directory (see usage below).
#include "BesideProgram.h"
#include "SlapdInstance.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr int USAGE_ERROR = 2;
// As env(1) and timeout(1): 125 for the tool's own failure, 126/127 for a command that cannot run.
constexpr int START_FAILED = 125;
constexpr int CANNOT_EXECUTE = 126;
constexpr int NOT_FOUND = 127;

const char* const USAGE =
    "Usage: slapd-instance run [--ldif FILE] [--cipher-suite PRIORITY] -- COMMAND [ARGUMENT...]\n"
    "       slapd-instance --help\n"
    "\n"
    "Starts a throw-away OpenLDAP slapd on free loopback ports (plain LDAP with StartTLS, and\n"
    "LDAPS) holding the sample users of test/fixtures/ldap/sample.ldif, runs COMMAND with the\n"
    "variables below set, then stops slapd, removes its files and exits with COMMAND's status\n"
    "(128+N when signal N ended it). SIGINT and SIGTERM sent to slapd-instance alone are passed\n"
    "on to COMMAND; a terminal's Ctrl-C reaches COMMAND directly.\n"
    "\n"
    "  LDAP_HOST                  127.0.0.1\n"
    "  LDAP_PLAIN_PORT            port for plain LDAP and StartTLS\n"
    "  LDAP_LDAPS_PORT            port for LDAPS\n"
    "  LDAP_CA_FILE               the CA that signed the server's certificate\n"
    "  LDAP_OTHER_CA_FILE         a CA that signed nothing (a client trusting it refuses the server)\n"
    "  LDAP_BASE_DN               dc=example,dc=com\n"
    "  LDAP_ROOT_DN               the administrator, cn=admin,dc=example,dc=com\n"
    "  LDAP_ROOT_PASSWORD         its password\n"
    "  LDAP_READER_DN             a user that may bind and read, cn=reader,dc=example,dc=com\n"
    "  LDAP_READER_PASSWORD       its password\n"
    "  LDAP_ROLE_ALIASES_BASE_DN  ou=roleAliases,dc=example,dc=com\n"
    "\n"
    "Options:\n"
    "  --ldif FILE               entries from FILE instead of the sample users (the suffix, the\n"
    "                            people, groups and roleAliases containers and the reader stay)\n"
    "  --cipher-suite PRIORITY   restrict slapd's TLS to this GnuTLS priority string\n"
    "\n"
    "Exit status: COMMAND's; 2 for a usage error; 125 when slapd could not be started;\n"
    "126 or 127 when COMMAND could not be executed.\n";

struct Invocation {
  bool help = false;
  TestDirectory::SlapdInstance::Options options;
  std::vector<std::string> command;
};

bool parse(int argc, char** argv, Invocation& invocation, std::string& error) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() == 1 && (words[0] == "--help" || words[0] == "-h")) {
    invocation.help = true;
    return true;
  }
  if (words.empty() || words[0] != "run") {
    error = "expected \"run\" or \"--help\"";
    return false;
  }
  size_t i = 1;
  // Options come in pairs: name, value.
  while (i < words.size() && words[i] != "--") {
    const std::string& name = words[i];
    if (name != "--ldif" && name != "--cipher-suite") {
      error = "unknown option " + name;
      return false;
    }
    if (i + 1 >= words.size()) {
      error = name + " needs a value";
      return false;
    }
    (name == "--ldif" ? invocation.options.ldifFile : invocation.options.cipherSuite) = words[i + 1];
    i += 2;
  }
  if (i + 1 >= words.size()) {
    error = "expected -- and a command";
    return false;
  }
  invocation.command.assign(words.begin() + static_cast<long>(i) + 1, words.end());
  return true;
}

void exportDirectory(const TestDirectory::SlapdInstance& directory) {
  using TestDirectory::SlapdInstance;
  const std::vector<std::pair<const char*, std::string>> variables{
      {"LDAP_HOST", SlapdInstance::host()},
      {"LDAP_PLAIN_PORT", std::to_string(directory.plainPort())},
      {"LDAP_LDAPS_PORT", std::to_string(directory.ldapsPort())},
      {"LDAP_CA_FILE", directory.caFile()},
      {"LDAP_OTHER_CA_FILE", directory.otherCaFile()},
      {"LDAP_BASE_DN", SlapdInstance::baseDn()},
      {"LDAP_ROOT_DN", SlapdInstance::rootDn()},
      {"LDAP_ROOT_PASSWORD", SlapdInstance::rootPassword()},
      {"LDAP_READER_DN", SlapdInstance::readerDn()},
      {"LDAP_READER_PASSWORD", SlapdInstance::readerPassword()},
      {"LDAP_ROLE_ALIASES_BASE_DN", SlapdInstance::roleAliasesBaseDn()},
  };
  for (const auto& variable : variables) ::setenv(variable.first, variable.second.c_str(), 1);
}

volatile sig_atomic_t commandPid = 0;
volatile sig_atomic_t stopSignal = 0;

// A signal from the terminal went to the whole foreground process group, COMMAND included; only
// one sent to this process alone (kill, a test harness) is passed on.
void onStopSignal(int signal, siginfo_t* info, void*) {
  stopSignal = signal;
  if (commandPid > 0 && info->si_code <= 0) ::kill(commandPid, signal);
}

void catchStopSignals() {
  struct sigaction action {};
  action.sa_sigaction = onStopSignal;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
}

// Starts the command; the stop signals stay blocked until commandPid names it. -1 (with the
// reason printed) when fork fails.
pid_t startCommand(const std::vector<std::string>& command) {
  std::vector<char*> argv;
  for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  sigset_t stopSignals;
  sigset_t previous;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  ::sigprocmask(SIG_BLOCK, &stopSignals, &previous);
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::signal(SIGINT, SIG_DFL);
    ::signal(SIGTERM, SIG_DFL);
    ::sigprocmask(SIG_SETMASK, &previous, nullptr);
    ::execvp(argv[0], argv.data());
    const int reason = errno;
    std::cerr << "slapd-instance: cannot execute " << argv[0] << ": " << std::strerror(reason) << std::endl;
    ::_exit(reason == ENOENT ? NOT_FOUND : CANNOT_EXECUTE);
  }
  if (pid < 0) {
    std::cerr << "slapd-instance: cannot start " << command[0] << ": " << std::strerror(errno) << "\n";
  } else {
    commandPid = pid;
  }
  ::sigprocmask(SIG_SETMASK, &previous, nullptr);
  return pid;
}

int waitForCommand(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return CANNOT_EXECUTE;
  }
  commandPid = 0;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

int main(int argc, char** argv) {
  Invocation invocation;
  invocation.options.fixturesDirectory = Tools::besideProgram(QIV_LDAP_FIXTURES_DIR);
  std::string error;
  if (!parse(argc, argv, invocation, error)) {
    std::cerr << "slapd-instance: " << error << "\nTry: slapd-instance --help\n";
    return USAGE_ERROR;
  }
  if (invocation.help) {
    std::cout << USAGE;
    return 0;
  }
  // From here a stop signal ends the run in order: the directory is stopped and removed.
  catchStopSignals();
  std::unique_ptr<TestDirectory::SlapdInstance> directory;
  try {
    directory.reset(new TestDirectory::SlapdInstance(invocation.options));
  } catch (const std::exception& startError) {
    std::cerr << "slapd-instance: " << startError.what() << "\n";
    return START_FAILED;
  }
  if (stopSignal != 0) return 128 + stopSignal;
  exportDirectory(*directory);
  const pid_t pid = startCommand(invocation.command);
  return pid < 0 ? CANNOT_EXECUTE : waitForCommand(pid);
}
