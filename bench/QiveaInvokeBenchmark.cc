// What AmQivEaWrapper::invoke costs over the least a caller must do to run the qivea stand-in:
// "qivea spi-revision" through invoke against posix_spawn + read of its output pipe + waitpid,
// in the same run. Prints the ratio of the median real times (invoke / baseline) at the end.

#include "AmQivEaWrapper.h"
#include "BenchmarkRunner.h"
#include "ChildProcess.h"
#include "QiveaStandIn.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

const unsigned TIMEOUT_MS = 20000;
const int REPETITIONS = 10;

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
  Bench::ChildProcess spiRevision({"qivea", "spi-revision"});
  std::string output;
  for (auto _ : state) {
    if (!spiRevision.run(output) || output.empty()) {
      state.SkipWithError("posix_spawn of qivea failed");
      break;
    }
  }
}

// Both wait for a child most of the time: only the real time says anything.
BENCHMARK(BM_PosixSpawnBaseline)->UseRealTime()->Unit(benchmark::kMicrosecond)->Repetitions(REPETITIONS);
BENCHMARK(BM_Invoke)->UseRealTime()->Unit(benchmark::kMicrosecond)->Repetitions(REPETITIONS);

}  // namespace

int main(int argc, char** argv) {
  // A throw-away QIVEA_HOME, and the stand-in first on PATH, for both benchmarks.
  const QiveaStandIn standIn(QIVEA_DIR);
  return Bench::BenchmarkRunner::run(argc, argv, "BM_Invoke", "BM_PosixSpawnBaseline", "invoke");
}
