#ifndef QIV_ACCESS_MANAGEMENT_SPAWNED_PROCESS_H
#define QIV_ACCESS_MANAGEMENT_SPAWNED_PROCESS_H

#include <string>
#include <vector>

namespace Poco {
class Pipe;
}

namespace QivAccessManagement {

// A node program the component runs, started with posix_spawnp rather than the process
// library's launch, which closes every descriptor up to the limit one call at a time and needs a
// fork handler to move the child into a group of its own. The child is found by its bare name on
// PATH, is the leader of a process group of its own before it execs (a watchdog kills the
// negated pid, and with it whatever the child started), writes standard output and standard
// error into the two pipes, inherits standard input and has no other descriptor open.
// Reaped exactly once: an object left before wait (an exception) kills the child's group and
// reaps it, so that neither the child nor its zombie outlives the object.
class SpawnedProcess {
 public:
  // What wait adds to the number of the signal that ended the child, as the process library does.
  static const int SIGNAL_STATUS_BASE = 256;

  // Starts program with args (without the program name) and closes the write ends of both pipes
  // in this process, so that reading them ends when the child's copies are gone. Throws
  // Poco::FileNotFoundException when PATH holds no such program and Poco::SystemException when it
  // cannot be started otherwise (no processes left), as the process library would.
  SpawnedProcess(const std::string& program, const std::vector<std::string>& args, Poco::Pipe& outPipe,
                 Poco::Pipe& errPipe);
  ~SpawnedProcess();
  SpawnedProcess(const SpawnedProcess&) = delete;
  SpawnedProcess& operator=(const SpawnedProcess&) = delete;

  int id() const;

  // Blocks until the child ended, as wait() reports it, without reaping it: until wait() its pid
  // stays taken, so a watchdog that signals it or its group cannot hit a process that took the
  // number over. Throws Poco::SystemException when there is no child to wait for.
  int waitForExit();

  // Blocks until the child ended and reaps it: its exit status, or SIGNAL_STATUS_BASE + the
  // signal that ended it. Throws Poco::SystemException when there is no child to wait for
  // (reaped elsewhere).
  int wait();

 private:
  int _pid;
  bool _waited;
};

}  // namespace QivAccessManagement

#endif
