#include "BenchmarkRunner.h"

#include <benchmark/benchmark.h>

#include <utility>

namespace Bench {

BenchmarkRunner::BenchmarkRunner(int argc, char** argv, std::vector<RatioReporter::Comparison> comparisons)
    : _reporter(std::move(comparisons)) {
  // Repetitions of measured and baseline interleaved, so that load from elsewhere falls on both
  // alike; a flag given on the command line comes later and wins.
  std::vector<char*> args(argv, argv + argc);
  char interleave[] = "--benchmark_enable_random_interleaving=true";
  args.insert(args.begin() + 1, interleave);
  int count = static_cast<int>(args.size());
  args.push_back(nullptr);
  benchmark::Initialize(&count, args.data());
  _argumentsAccepted = !benchmark::ReportUnrecognizedArguments(count, args.data());
}

BenchmarkRunner::~BenchmarkRunner() { benchmark::Shutdown(); }

bool BenchmarkRunner::argumentsAccepted() const { return _argumentsAccepted; }

void BenchmarkRunner::runRegistered() {
  benchmark::RunSpecifiedBenchmarks(&_reporter);
  benchmark::ClearRegisteredBenchmarks();
}

bool BenchmarkRunner::printRatios() const { return _reporter.printRatios(); }

int BenchmarkRunner::run(int argc, char** argv, const std::string& measured, const std::string& baseline,
                         const std::string& label) {
  BenchmarkRunner runner(argc, argv, {{measured, baseline, label}});
  if (!runner.argumentsAccepted()) return 1;
  runner.runRegistered();
  return runner.printRatios() ? 0 : 1;
}

}  // namespace Bench
