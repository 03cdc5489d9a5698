#ifndef TEST_DIRECTORY_CHILD_PROCESS_H
#define TEST_DIRECTORY_CHILD_PROCESS_H

#include <chrono>
#include <string>
#include <vector>

namespace TestDirectory {

// A program run as a direct child of this process, in its own process group (a terminal's Ctrl-C
// is not meant for it), with standard input from /dev/null and its output in a file. It gets
// SIGTERM when the thread that started it ends, so that it does not outlive a crashed test:
// start and stop it on a thread that lives as long as the object. Not thread-safe.
class ChildProcess {
 public:
  // Starts program (an absolute path, or a name looked up on PATH) with arguments; standard output
  // and standard error go to outputFile, which is truncated. Throws std::runtime_error when the
  // output file cannot be opened or fork fails; a program that cannot be executed ends at once
  // with status 127 and "cannot execute <program>" in its output.
  ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
               const std::string& outputFile);
  // Stops the child when it still runs.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  int pid() const { return _pid; }

  // True once the child has ended (and has been reaped); does not block.
  bool hasEnded();
  // Blocks until the child ends.
  void waitForEnd();
  // Blocks until the child ends; throws std::runtime_error with the command line and the output
  // when it did not exit with status 0.
  void waitForSuccess();
  // SIGTERM, then SIGKILL when the child has not ended within grace; returns once it is reaped.
  void stop(std::chrono::milliseconds grace);

  // How the child ended: "exit status N", "signal N", or "reaped elsewhere" (SIGCHLD ignored,
  // or a waitpid(-1) in the process); "running" while it runs.
  std::string endDescription() const;
  // What the child wrote so far.
  std::string output() const;

 private:
  bool exitedWithZero() const;
  // Records how waitpid's status says the child ended.
  void recordEnd(int status);

  std::string _commandLine;
  std::string _outputFile;
  int _pid;
  bool _ended;
  // waitpid's status; -1 when someone else reaped the child.
  int _status;
};

}  // namespace TestDirectory

#endif
