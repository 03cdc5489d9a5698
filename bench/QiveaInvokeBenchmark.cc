// What AmQivEaWrapper::invoke costs over the least a caller must do to run the qivea stand-in:
// "qivea spi-revision" through invoke against posix_spawn + read of its output pipe + waitpid,
// in the same run, at a descriptor limit of 1024 and at the hard limit. Prints the ratio of the
// median real times (invoke / baseline) at each limit at the end.

#include "AmQivEaWrapper.h"
#include "BenchmarkRunner.h"
#include "ChildProcess.h"
#include "QiveaStandIn.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

const unsigned TIMEOUT_MS = 20000;

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

}  // namespace

int main(int argc, char** argv) {
  // A throw-away QIVEA_HOME, and the stand-in first on PATH, for both benchmarks.
  const QiveaStandIn standIn(QIVEA_DIR);
  return Bench::BenchmarkRunner::runAtDescriptorLimits(argc, argv, "BM_Invoke", BM_Invoke, "BM_PosixSpawnBaseline",
                                                       BM_PosixSpawnBaseline, "invoke");
}
