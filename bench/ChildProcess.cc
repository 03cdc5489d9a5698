#include "ChildProcess.h"

#include "Descriptor.h"
#include "SpawnFileActions.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Bench {

ChildProcess::ChildProcess(std::vector<std::string> args) : _args(std::move(args)) {
  for (std::string& arg : _args) _argv.push_back(&arg[0]);
  _argv.push_back(nullptr);
}

bool ChildProcess::run(std::string& output) {
  if (_args.empty()) return false;
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return false;
  Descriptor readEnd(fds[0]);
  Descriptor writeEnd(fds[1]);
  SpawnFileActions actions;
  ::posix_spawn_file_actions_adddup2(actions.get(), writeEnd.get(), STDOUT_FILENO);
  pid_t pid = 0;
  if (::posix_spawnp(&pid, _argv[0], actions.get(), nullptr, _argv.data(), environ) != 0) return false;
  // Our copy of the write end would keep the pipe from ever reaching its end.
  writeEnd.reset();
  output.clear();
  char buffer[8192];
  for (;;) {
    const ssize_t n = ::read(readEnd.get(), buffer, sizeof buffer);
    if (n > 0) {
      output.append(buffer, static_cast<std::size_t>(n));
    } else if (n == 0 || errno != EINTR) {
      break;
    }
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace Bench
