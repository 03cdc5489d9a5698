#include "BenchmarkRunner.h"

#include "RatioReporter.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace Bench {

int BenchmarkRunner::run(int argc, char** argv, const std::string& measured, const std::string& baseline,
                         const std::string& label) {
  // Repetitions of the two interleaved, so that load from elsewhere falls on both alike; a flag
  // given on the command line comes later and wins.
  std::vector<char*> args(argv, argv + argc);
  char interleave[] = "--benchmark_enable_random_interleaving=true";
  args.insert(args.begin() + 1, interleave);
  int count = static_cast<int>(args.size());
  args.push_back(nullptr);
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
  RatioReporter reporter(measured, baseline, label);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return reporter.printRatio() ? 0 : 1;
}

}  // namespace Bench
