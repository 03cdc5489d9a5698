#include "SpawnedProcess.h"

#include <Poco/Error.h>
#include <Poco/Exception.h>
#include <Poco/Pipe.h>

#include <cerrno>
#include <csignal>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace QivAccessManagement {

namespace {

// posix_spawnp's error number, 0 when the child runs. Everything happens in the child before it
// execs: the group (0: its own pid), the two pipes as standard output and standard error, and the
// closing of every other descriptor but standard input in one call, whatever the limit.
int spawn(pid_t& pid, const std::string& program, const std::vector<std::string>& args, int outFd, int errFd) {
  std::vector<char*> argv;
  argv.reserve(args.size() + 2);
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);

  posix_spawnattr_t attributes;
  posix_spawn_file_actions_t actions;
  ::posix_spawnattr_init(&attributes);
  ::posix_spawn_file_actions_init(&actions);
  int error = ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  if (error == 0) error = ::posix_spawnattr_setpgroup(&attributes, 0);
  if (error == 0) error = ::posix_spawn_file_actions_adddup2(&actions, outFd, STDOUT_FILENO);
  if (error == 0) error = ::posix_spawn_file_actions_adddup2(&actions, errFd, STDERR_FILENO);
  if (error == 0) error = ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
  if (error == 0) error = ::posix_spawnp(&pid, argv[0], &actions, &attributes, argv.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  ::posix_spawnattr_destroy(&attributes);
  return error;
}

}  // namespace

SpawnedProcess::SpawnedProcess(const std::string& program, const std::vector<std::string>& args,
                               Poco::Pipe& outPipe, Poco::Pipe& errPipe)
    : _pid(0), _waited(false) {
  pid_t pid = 0;
  const int error = spawn(pid, program, args, outPipe.writeHandle(), errPipe.writeHandle());
  if (error == ENOENT) throw Poco::FileNotFoundException(program);
  if (error != 0) throw Poco::SystemException("Cannot start " + program, Poco::Error::getMessage(error), error);
  _pid = pid;
  outPipe.close(Poco::Pipe::CLOSE_WRITE);
  errPipe.close(Poco::Pipe::CLOSE_WRITE);
}

SpawnedProcess::~SpawnedProcess() {
  if (_waited) return;
  if (::kill(-_pid, SIGKILL) != 0) ::kill(_pid, SIGKILL);
  int status = 0;
  while (::waitpid(_pid, &status, 0) == -1 && errno == EINTR) {
  }
}

int SpawnedProcess::id() const { return _pid; }

int SpawnedProcess::waitForExit() {
  siginfo_t info = {};
  while (::waitid(P_PID, static_cast<id_t>(_pid), &info, WEXITED | WNOWAIT) == -1) {
    if (errno != EINTR) throw Poco::SystemException("Cannot wait for process", std::to_string(_pid));
  }
  return info.si_code == CLD_EXITED ? info.si_status : SIGNAL_STATUS_BASE + info.si_status;
}

int SpawnedProcess::wait() {
  // Marked first: a wait that fails found no child, and the pid must not be signalled afterwards.
  _waited = true;
  int status = 0;
  while (::waitpid(_pid, &status, 0) == -1) {
    if (errno != EINTR) throw Poco::SystemException("Cannot wait for process", std::to_string(_pid));
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : SIGNAL_STATUS_BASE + WTERMSIG(status);
}

}  // namespace QivAccessManagement
