#include "BenchmarkRunner.h"

#include "DescriptorLimit.h"

#include <benchmark/benchmark.h>

#include <utility>

namespace Bench {

namespace {

// Repetitions of measured and baseline interleave: many short ones, so that load from other
// processes, which comes and goes, falls on both alike.
const int REPETITIONS = 100;
const double REPETITION_SECONDS = 0.05;

}  // namespace

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

int BenchmarkRunner::runAtDescriptorLimits(int argc, char** argv, const std::string& measuredName,
                                           const Body& measured, const std::string& baselineName,
                                           const Body& baseline, const std::string& label) {
  const std::vector<rlim_t> limits = DescriptorLimit::compared();
  auto atLimit = [](const std::string& name, rlim_t limit) { return name + "_" + std::to_string(limit); };
  std::vector<RatioReporter::Comparison> comparisons;
  for (rlim_t limit : limits) {
    comparisons.push_back({atLimit(measuredName, limit), atLimit(baselineName, limit),
                           label + " at " + std::to_string(limit) + " descriptors"});
  }
  BenchmarkRunner runner(argc, argv, comparisons);
  if (!runner.argumentsAccepted()) return 1;
  for (rlim_t limit : limits) {
    const DescriptorLimit set(limit);
    for (const auto& named : {std::make_pair(atLimit(baselineName, limit), baseline),
                              std::make_pair(atLimit(measuredName, limit), measured)}) {
      benchmark::RegisterBenchmark(named.first.c_str(), named.second)
          ->UseRealTime()
          ->Unit(benchmark::kMicrosecond)
          ->MinTime(REPETITION_SECONDS)
          ->Repetitions(REPETITIONS);
    }
    runner.runRegistered();
  }
  return runner.printRatios() ? 0 : 1;
}

}  // namespace Bench
