#include "Script.h"

#include "CommandFailure.h"
#include "Files.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace Qivea {

namespace {

const long DEFAULT_GRANDCHILD_SECONDS = 30;
const unsigned PUBLIC_FILE_MODE = 0644;

bool isDirectory(const std::string& path) {
  struct stat status;
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// A word that names a directory of its own, not a path.
bool isKeyWord(const std::string& word) { return !word.empty() && word[0] != '.' && word.find('/') == std::string::npos; }

void sleepMilliseconds(long milliseconds) {
  timespec remaining = {milliseconds / 1000, (milliseconds % 1000) * 1000000L};
  while (::nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
  }
}

void redirectToNull(int fd) {
  const int null = ::open("/dev/null", O_RDWR);
  if (null < 0) return;
  ::dup2(null, fd);
  ::close(null);
}

CommandFailure systemFailure(const std::string& what) {
  return CommandFailure(CommandFailure::GENERAL, what + ": " + std::strerror(errno));
}

}  // namespace

std::optional<Script> Script::find(const QiveaHome& home, const std::vector<std::string>& args) {
  if (args.empty() || !isKeyWord(args[0])) return std::nullopt;
  if (args.size() > 1 && isKeyWord(args[1]) && isDirectory(home.file("script/" + args[0] + " " + args[1]))) {
    return Script(home, args[0] + " " + args[1]);
  }
  if (isDirectory(home.file("script/" + args[0]))) return Script(home, args[0]);
  return std::nullopt;
}

Script::Script(const QiveaHome& home, const std::string& key)
    : _home(home), _key(key), _directory(home.file("script/" + key)) {}

int Script::play() const {
  if (has("leave-group") && ::setpgid(0, ::getpgid(::getppid())) != 0) throw systemFailure("cannot leave the process group");
  if (has("grandchild")) startGrandchild();
  if (has("delay-ms")) sleepMilliseconds(number("delay-ms", 0));
  if (has("stdout-bytes")) writeAll(STDOUT_FILENO, std::string(static_cast<std::size_t>(number("stdout-bytes", 0)), 'x'));
  if (has("stdout")) writeAll(STDOUT_FILENO, content("stdout"));
  if (has("stderr")) writeAll(STDERR_FILENO, content("stderr"));
  if (has("unknown-command")) {
    writeAll(STDERR_FILENO, "qivea: unknown command: " + _key + "\n");
    return CommandFailure::GENERAL;
  }
  if (has("hang")) {
    for (;;) ::pause();
  }
  if (has("signal")) {
    const int signalNumber = static_cast<int>(number("signal", 0));
    // A crash on purpose leaves no core file behind.
    const rlimit noCore = {0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);
    std::signal(signalNumber, SIG_DFL);
    std::raise(signalNumber);
    throw CommandFailure(CommandFailure::GENERAL, "signal " + std::to_string(signalNumber) + " did not end the process");
  }
  return static_cast<int>(number("exit", 0));
}

bool Script::has(const char* name) const { return exists(_directory + "/" + name); }

std::string Script::content(const char* name) const {
  std::string text;
  if (!readFile(_directory + "/" + name, text)) throw systemFailure("cannot read " + _directory + "/" + name);
  return text;
}

long Script::number(const char* name, long defaultValue) const {
  if (!has(name)) return defaultValue;
  const std::string text = content(name);
  if (text.find_first_not_of(" \t\r\n") == std::string::npos) return defaultValue;
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text.c_str(), &end, 10);
  while (end != nullptr && *end != '\0' && std::strchr(" \t\r\n", *end) != nullptr) ++end;
  if (errno != 0 || end == text.c_str() || *end != '\0') {
    throw CommandFailure(CommandFailure::GENERAL, _directory + "/" + name + " is not a number: " + text);
  }
  return value;
}

void Script::startGrandchild() const {
  const long seconds = number("grandchild", DEFAULT_GRANDCHILD_SECONDS);
  const bool keepsOutput = has("grandchild-keeps-output");
  const bool leavesGroup = has("grandchild-leaves-group");
  const pid_t pid = ::fork();
  if (pid < 0) throw systemFailure("cannot start a grandchild");
  if (pid == 0) {
    if (leavesGroup) ::setpgid(0, 0);
    redirectToNull(STDIN_FILENO);
    // Silent, so that only the kill of the process group can end it before its time.
    if (!keepsOutput) {
      redirectToNull(STDOUT_FILENO);
      redirectToNull(STDERR_FILENO);
    }
    sleepMilliseconds(seconds * 1000);
    ::_exit(0);
  }
  // Set on both sides, so that the group is the grandchild's own before this process goes on.
  if (leavesGroup) ::setpgid(pid, pid);
  writeFileAtomically(_home.file("grandchild.pid"), std::to_string(pid) + "\n", PUBLIC_FILE_MODE);
}

}  // namespace Qivea
