#ifndef BENCH_CHILD_PROCESS_H
#define BENCH_CHILD_PROCESS_H

#include <string>
#include <vector>

namespace Bench {

// The least a caller must do to run a program and take its output: posix_spawnp with standard
// output on a pipe, read the pipe to its end, waitpid. The baseline the benchmarks measure
// against.
class ChildProcess {
 public:
  // args[0] is the program, looked up on PATH when run; every element is one argument.
  explicit ChildProcess(std::vector<std::string> args);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Runs the command once; output is replaced by what it printed on standard output. True when
  // the child was started and exited with status 0. Several threads may not share one object.
  bool run(std::string& output);

 private:
  std::vector<std::string> _args;
  // Pointers into _args, null-terminated, built once so that run allocates nothing for them.
  std::vector<char*> _argv;
};

}  // namespace Bench

#endif
