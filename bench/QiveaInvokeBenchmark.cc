// What AmQivEaWrapper::invoke costs over the least a caller must do to run the qivea stand-in:
// "qivea spi-revision" through invoke against posix_spawn + read of its output pipe + waitpid,
// in the same run. Prints the ratio of the median real times (invoke / baseline) at the end.

#include "AmQivEaWrapper.h"
#include "QiveaStandIn.h"

#include <benchmark/benchmark.h>

#include <cerrno>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const unsigned TIMEOUT_MS = 20000;
const int REPETITIONS = 10;
const char INVOKE[] = "BM_Invoke";
const char BASELINE[] = "BM_PosixSpawnBaseline";

// One end of a pipe, closed on every path.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : _fd(fd) {}
  ~Descriptor() { reset(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return _fd; }
  void reset(int fd = -1) {
    if (_fd >= 0) ::close(_fd);
    _fd = fd;
  }

 private:
  int _fd;
};

class SpawnFileActions {
 public:
  SpawnFileActions() { ::posix_spawn_file_actions_init(&_actions); }
  ~SpawnFileActions() { ::posix_spawn_file_actions_destroy(&_actions); }
  SpawnFileActions(const SpawnFileActions&) = delete;
  SpawnFileActions& operator=(const SpawnFileActions&) = delete;

  posix_spawn_file_actions_t* get() { return &_actions; }

 private:
  posix_spawn_file_actions_t _actions;
};

// Runs "qivea spi-revision" with its standard output on a pipe, reads the pipe to its end and
// reaps the child. False on any failure.
bool spawnSpiRevision(std::string& output) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) return false;
  Descriptor readEnd(fds[0]);
  Descriptor writeEnd(fds[1]);
  SpawnFileActions actions;
  ::posix_spawn_file_actions_adddup2(actions.get(), writeEnd.get(), STDOUT_FILENO);
  char program[] = "qivea";
  char command[] = "spi-revision";
  char* argv[] = {program, command, nullptr};
  pid_t pid = 0;
  if (::posix_spawnp(&pid, program, actions.get(), nullptr, argv, environ) != 0) return false;
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

void BM_Invoke(benchmark::State& state) {
  const QivAccessManagement::AmQivEaWrapper wrapper;
  std::string output;
  for (auto _ : state) {
    if (wrapper.invoke({"spi-revision"}, output, TIMEOUT_MS) != 0 || output.empty()) {
      state.SkipWithError("invoke failed");
      break;
    }
  }
}

void BM_PosixSpawnBaseline(benchmark::State& state) {
  std::string output;
  for (auto _ : state) {
    if (!spawnSpiRevision(output) || output.empty()) {
      state.SkipWithError("posix_spawn of qivea failed");
      break;
    }
  }
}

// Both wait for a child most of the time: only the real time says anything.
BENCHMARK(BM_PosixSpawnBaseline)->UseRealTime()->Unit(benchmark::kMicrosecond)->Repetitions(REPETITIONS);
BENCHMARK(BM_Invoke)->UseRealTime()->Unit(benchmark::kMicrosecond)->Repetitions(REPETITIONS);

// The console report, keeping each benchmark's median real time for the ratio.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  // Colours only on a terminal.
  RatioReporter() : ConsoleReporter(::isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median" && !run.error_occurred) {
        _medians[run.run_name.function_name] = run.GetAdjustedRealTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }

  // False when a benchmark was filtered out or failed.
  bool printRatio() const {
    const auto invoke = _medians.find(INVOKE);
    const auto baseline = _medians.find(BASELINE);
    if (invoke == _medians.end() || baseline == _medians.end() || baseline->second <= 0) {
      std::printf("ratio invoke / baseline: not measured (both benchmarks must run and succeed)\n");
      return false;
    }
    std::printf("ratio invoke / baseline (median real time): %.2f (%.0f us / %.0f us)\n",
                invoke->second / baseline->second, invoke->second, baseline->second);
    return true;
  }

 private:
  std::map<std::string, double> _medians;
};

}  // namespace

int main(int argc, char** argv) {
  // A throw-away QIVEA_HOME, and the stand-in first on PATH, for both benchmarks.
  const QiveaStandIn standIn(QIVEA_DIR);
  // Repetitions of the two interleaved, so that load from elsewhere falls on both alike; a flag
  // given on the command line comes later and wins.
  std::vector<char*> args(argv, argv + argc);
  char interleave[] = "--benchmark_enable_random_interleaving=true";
  args.insert(args.begin() + 1, interleave);
  int count = static_cast<int>(args.size());
  args.push_back(nullptr);
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return reporter.printRatio() ? 0 : 1;
}
