#include "ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace TestDirectory {

namespace {

constexpr std::chrono::milliseconds POLL_INTERVAL{2};

std::string commandLine(const std::string& program, const std::vector<std::string>& arguments) {
  std::string line = program;
  for (const std::string& argument : arguments) line += " '" + argument + "'";
  return line;
}

// Only async-signal-safe calls from here to exec: the parent may have other threads.
[[noreturn]] void execInChild(pid_t parent, int input, int output, const char* program, char* const* argv,
                              const std::string& execFailure, rlim_t openFilesLimit) {
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  // The parent may have died before the line above took effect.
  if (::getppid() != parent) ::_exit(127);
  ::setpgid(0, 0);
  ::dup2(input, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(output, STDERR_FILENO);
  // Descriptors the test process left open (pipes of the code under test) must not be held open
  // by a long-lived child.
  if (::close_range(3, ~0U, 0) != 0) {
    for (rlim_t fd = 3; fd < openFilesLimit; ++fd) ::close(static_cast<int>(fd));
  }
  ::execvp(program, argv);
  const ssize_t ignored = ::write(STDERR_FILENO, execFailure.data(), execFailure.size());
  (void)ignored;
  ::_exit(127);
}

}  // namespace

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                           const std::string& outputFile)
    : _commandLine(commandLine(program, arguments)), _outputFile(outputFile), _pid(-1), _ended(false), _status(0) {
  std::vector<std::string> words{program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(&word[0]);
  argv.push_back(nullptr);
  const std::string execFailure = "cannot execute " + program + "\n";
  rlimit openFiles{};
  ::getrlimit(RLIMIT_NOFILE, &openFiles);

  const int input = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  const int output = ::open(outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (input < 0 || output < 0) {
    const std::string reason = std::strerror(errno);
    if (input >= 0) ::close(input);
    if (output >= 0) ::close(output);
    throw std::runtime_error("cannot open " + outputFile + " or /dev/null for " + program + ": " + reason);
  }
  const pid_t parent = ::getpid();
  const pid_t pid = ::fork();
  if (pid == 0) execInChild(parent, input, output, program.c_str(), argv.data(), execFailure, openFiles.rlim_cur);
  const int forkError = errno;
  ::close(input);
  ::close(output);
  if (pid < 0) throw std::runtime_error("cannot start " + program + ": " + std::strerror(forkError));
  _pid = pid;
}

ChildProcess::~ChildProcess() { stop(std::chrono::seconds(5)); }

bool ChildProcess::hasEnded() {
  if (_ended) return true;
  int status = 0;
  const pid_t reaped = ::waitpid(_pid, &status, WNOHANG);
  if (reaped == _pid) {
    recordEnd(status);
  } else if (reaped < 0 && errno == ECHILD) {
    recordEnd(-1);
  }
  return _ended;
}

void ChildProcess::waitForEnd() {
  if (_ended) return;
  int status = 0;
  pid_t reaped;
  do {
    reaped = ::waitpid(_pid, &status, 0);
  } while (reaped < 0 && errno == EINTR);
  recordEnd(reaped == _pid ? status : -1);
}

void ChildProcess::waitForSuccess() {
  waitForEnd();
  if (!exitedWithZero()) throw std::runtime_error(_commandLine + " failed (" + endDescription() + "):\n" + output());
}

void ChildProcess::stop(std::chrono::milliseconds grace) {
  if (hasEnded()) return;
  ::kill(_pid, SIGTERM);
  const auto deadline = std::chrono::steady_clock::now() + grace;
  while (!hasEnded() && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(POLL_INTERVAL);
  if (_ended) return;
  ::kill(_pid, SIGKILL);
  waitForEnd();
}

std::string ChildProcess::endDescription() const {
  if (!_ended) return "running";
  if (_status == -1) return "reaped elsewhere";
  if (WIFEXITED(_status)) return "exit status " + std::to_string(WEXITSTATUS(_status));
  return "signal " + std::to_string(WTERMSIG(_status));
}

bool ChildProcess::exitedWithZero() const {
  return _ended && _status != -1 && WIFEXITED(_status) && WEXITSTATUS(_status) == 0;
}

std::string ChildProcess::output() const {
  std::ifstream file(_outputFile);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void ChildProcess::recordEnd(int status) {
  _ended = true;
  _status = status;
}

}  // namespace TestDirectory
