#include "AmQivEaWrapper.h"

#include "AmQivEaWrapperTimeout.h"
#include "ChildOutputReader.h"
#include "SpawnedProcess.h"

#include <Poco/Exception.h>
#include <Poco/Pipe.h>
#include <Poco/RegularExpression.h>
#include <Qiv/LoggingWrapper.h>
#include <Qiv/QivException.h>
#include <Qiv/Timer.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <limits>
#include <optional>
#include <sstream>

#include <arpa/inet.h>
#include <netinet/in.h>

namespace QivAccessManagement {

namespace {

typedef std::chrono::steady_clock Clock;

const char PROGRAM[] = "qivea";
const int GENERIC_FAILURE = -1;
const int QIVEA_TIMEOUT = -11;

// PymReturnT of the exit statuses 0..8.
const int EXIT_STATUS_CODES[] = {0, -1, -2, -1, -1, -1, -1, -1, -9};
// The failure codes invoke hands out; any other becomes GENERIC_FAILURE.
const int FAILURE_CODES[] = {-1, -2, -4, -6, -8, -9, -11};

const char UNKNOWN_COMMAND[] = "unknown command";
const char PASSWORD_PATTERN[] = "(--bind-password=|--bindPassword=)[^ \\r\\n]*";
const char PASSWORD_REPLACEMENT[] = "$1****";
const char MASK[] = "****";
// The options that carry a clear password: the authentication command's and the search's.
const char* const PASSWORD_OPTIONS[] = {"--bind-password=", "--bindPassword="};

bool traceEnabled() { return Qiv::LoggingWrapper::isEnabled(Qiv::LoggingWrapper::TRACE); }

// Qiv::Timer counts in long, which is 32 bits on the node.
long timerInterval(unsigned timeoutMs) {
  return static_cast<long>(std::min<unsigned long>(timeoutMs, std::numeric_limits<long>::max()));
}

int allowedFailureCode(int code) {
  const bool allowed = std::find(std::begin(FAILURE_CODES), std::end(FAILURE_CODES), code) != std::end(FAILURE_CODES);
  return allowed ? code : GENERIC_FAILURE;
}

bool startsWith(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

// The values of the password options among args, each the whole rest of its argument.
std::vector<std::string> passwordsIn(const std::vector<std::string>& args) {
  std::vector<std::string> passwords;
  for (const std::string& arg : args) {
    for (const char* option : PASSWORD_OPTIONS) {
      const std::size_t length = std::char_traits<char>::length(option);
      if (startsWith(arg, option) && arg.size() > length) passwords.push_back(arg.substr(length));
    }
  }
  return passwords;
}

void replaceAll(std::string& text, const std::string& found, const std::string& replacement) {
  for (std::size_t at = text.find(found); at != std::string::npos; at = text.find(found, at + replacement.size())) {
    text.replace(at, found.size(), replacement);
  }
}

}  // namespace

int AmQivEaWrapper::invoke(const std::vector<std::string>& args, std::string& output, unsigned timeoutMs) const {
  return run(args, passwordsIn(args), output, timeoutMs);
}

int AmQivEaWrapper::run(const std::vector<std::string>& args, const std::vector<std::string>& passwords,
                        std::string& output, unsigned timeoutMs) const {
  Poco::Pipe outPipe;
  Poco::Pipe errPipe;
  AmQivEaWrapperTimeout timeout;
  std::optional<SpawnedProcess> child;
  // Declared after the child: on an exception it is stopped before the child is killed and reaped.
  Qiv::Timer timer(timerInterval(timeoutMs), 0);
  auto masked = [this, &passwords](std::string text) {
    hidePasswords(text, passwords, true);
    return text;
  };

  if (traceEnabled()) QIV_TRACE("Invoking: qivea %s", serialize(args, passwords).c_str());
  try {
    child.emplace(PROGRAM, args, outPipe, errPipe);
  } catch (const Poco::FileNotFoundException& e) {
    // A failed run with nothing to read, as when the process library's child could not exec it.
    QIV_TRACE("QIV-EA process not started: %s", e.displayText().c_str());
    return GENERIC_FAILURE;
  }
  timeout.setProcessId(child->id());
  QIV_TRACE("Launch QIV-EA process with pid %d", child->id());
  const ChildOutputReader reader(timeout, Clock::now() + std::chrono::milliseconds(timeoutMs));
  timer.start(Qiv::TimerCallback<AmQivEaWrapperTimeout>(timeout, &AmQivEaWrapperTimeout::onTimer));

  // The pipes are read only once the child ended: a child that fills one blocks until killed.
  // Unreaped until the watchdog is stopped, so that its kill cannot reach a reused pid. The
  // watchdog keeps running while the pipes are read: whatever the child started and left holding
  // them would otherwise keep this call waiting past the time-out.
  const int status = child->waitForExit();
  QIV_TRACE("QIV-EA process return value: %d", status);
  std::string printed;
  std::string errorText;
  if (status == 0) {
    if (!timeout.isExpired()) reader.read({{outPipe.readHandle(), &printed, std::string::npos}});
  } else {
    reader.read({{errPipe.readHandle(), &errorText, std::string::npos}});
  }
  // The watchdog kills before it marks the time as up: let a running one finish before asking.
  timer.stop();
  child->wait();
  if (status == 0) {
    if (timeout.isExpired()) return QIVEA_TIMEOUT;
    if (!printed.empty() && traceEnabled()) QIV_TRACE("%s", masked(printed).c_str());
    output.swap(printed);
    return 0;
  }

  if (!errorText.empty()) {
    // An older qivea lacking a command is only worth a warning.
    const int level = errorText.find(UNKNOWN_COMMAND) != std::string::npos ? 4 : 3;
    QIV_LOG(level, "%s", masked(errorText).c_str());
  }
  if (status > SpawnedProcess::SIGNAL_STATUS_BASE) {
    QIV_LOG(3, "QIV-EA process %d was ended by signal %d", child->id(), status - SpawnedProcess::SIGNAL_STATUS_BASE);
  }
  return allowedFailureCode(map_qivea_rc_to_qiv_rc(status));
}

int AmQivEaWrapper::getQiveaSpiRevision(std::string& revision, unsigned timeoutMs) const {
  QIV_TRACE(" >> ");
  const int result = invoke({"spi-revision"}, revision, timeoutMs);
  QIV_TRACE(" << qivea spi-revision returned: '%s'", revision.c_str());
  return result;
}

int AmQivEaWrapper::getQivPsoClearPath(std::string& path, unsigned timeoutMs) const {
  QIV_TRACE(" >> ");
  const int result = invoke({"pso", "clear"}, path, timeoutMs);
  path.erase(std::remove(path.begin(), path.end(), '\n'), path.end());
  QIV_TRACE(" << qivea pso clear returned: '%s'", path.c_str());
  return result;
}

int AmQivEaWrapper::authorizationLdap(const std::string& arguments, std::string& roles, unsigned timeoutMs) const {
  return authorizationLdap(arguments, roles, timeoutMs, std::string());
}

int AmQivEaWrapper::authorizationLdap(const std::string& arguments, std::string& roles, unsigned timeoutMs,
                                      const std::string& bindPassword) const {
  std::vector<std::string> passwords;
  if (!bindPassword.empty()) passwords.push_back(bindPassword);
  if (traceEnabled()) {
    std::string shown(arguments);
    hidePasswords(shown, passwords, false);
    QIV_TRACE(" >> %s", shown.c_str());
  }
  const int result = run({"authorization", "ldap", "search", arguments}, passwords, roles, timeoutMs);
  if (traceEnabled()) {
    std::string shown(roles);
    hidePasswords(shown, passwords, true);
    QIV_TRACE(" << User has the following roles: '%s'", shown.c_str());
  }
  return result;
}

void AmQivEaWrapper::configureAuthentication(const std::vector<std::string>& args, unsigned timeoutMs) const {
  const std::string commandLine = serialize(args);
  QIV_TRACE(" >> %s timeout (ms): %u", commandLine.c_str(), timeoutMs);
  std::string output;
  const int result = invoke(args, output, timeoutMs);
  if (result != 0) {
    QIV_LOG(3, "Failed to invoke QIV-EA, return code: %d", result);
    throw Qiv::QivException("Failed to invoke: qivea %s, result: %d", commandLine.c_str(), result);
  }
  QIV_TRACE(" << Succeeded to set authentication '%s'", commandLine.c_str());
}

std::string AmQivEaWrapper::serialize(const std::vector<std::string>& args) const {
  return serialize(args, passwordsIn(args));
}

std::string AmQivEaWrapper::serialize(const std::vector<std::string>& args,
                                      const std::vector<std::string>& passwords) const {
  std::ostringstream line;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (i > 0) line << ' ';
    line << args[i];
  }
  std::string text = line.str();
  hidePasswords(text, passwords, false);
  return text;
}

void AmQivEaWrapper::hidePassword(std::string& text) const {
  static const Poco::RegularExpression password(PASSWORD_PATTERN);
  password.subst(text, PASSWORD_REPLACEMENT, Poco::RegularExpression::RE_GLOBAL);
}

void AmQivEaWrapper::hidePasswords(std::string& text, const std::vector<std::string>& passwords, bool anywhere) const {
  // Longest first: a shorter password inside a longer one would leave the longer one's rest.
  std::vector<std::string> sorted(passwords);
  std::sort(sorted.begin(), sorted.end(),
            [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
  for (const std::string& password : sorted) {
    if (password.empty()) continue;
    for (const char* option : PASSWORD_OPTIONS) replaceAll(text, option + password, option + std::string(MASK));
    if (anywhere) replaceAll(text, password, MASK);
  }
  // What no known value covered (a password the child printed after some other option text).
  hidePassword(text);
}

int AmQivEaWrapper::map_qivea_rc_to_qiv_rc(int rc) const {
  // Unsigned, so that a negative status falls outside the table too.
  const unsigned index = static_cast<unsigned>(rc);
  return index < std::size(EXIT_STATUS_CODES) ? EXIT_STATUS_CODES[index] : GENERIC_FAILURE;
}

bool isIPv6(const std::string& address) {
  in6_addr parsed;
  return inet_pton(AF_INET6, address.c_str(), &parsed) == 1;
}

}  // namespace QivAccessManagement
