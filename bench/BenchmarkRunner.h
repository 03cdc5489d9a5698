#ifndef BENCH_BENCHMARK_RUNNER_H
#define BENCH_BENCHMARK_RUNNER_H

#include "RatioReporter.h"

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

namespace Bench {

// The main program of benchmarks measured against their baselines: runs the registered
// benchmarks with their repetitions interleaved, then prints the ratio of each pair's medians.
// Benchmarks that need a set-up of their own (a differently configured component) are run in
// phases: register, runRegistered, and again for the next set-up.
class BenchmarkRunner {
 public:
  // Google Benchmark options in argv are honoured and win over the interleaving this adds.
  // The comparisons are those of every phase. At most one object at a time (the library's
  // flags are global).
  BenchmarkRunner(int argc, char** argv, std::vector<RatioReporter::Comparison> comparisons);
  ~BenchmarkRunner();
  BenchmarkRunner(const BenchmarkRunner&) = delete;
  BenchmarkRunner& operator=(const BenchmarkRunner&) = delete;

  // False (and said on standard error) when argv held an option the library does not know;
  // nothing should be run then.
  bool argumentsAccepted() const;
  // Runs the benchmarks registered so far and unregisters them, so that the next phase starts
  // with its own.
  void runRegistered();
  // As RatioReporter::printRatios.
  bool printRatios() const;

  // A benchmark's body.
  typedef std::function<void(benchmark::State&)> Body;

  // The whole main program for one pair, both waiting on children most of the time and so timed
  // by the real time, measured in a phase of its own at each descriptor limit of
  // DescriptorLimit::compared(): the benchmarks are named measuredName and baselineName followed
  // by "_<limit>", the ratio "<label> at <limit> descriptors". Their repetitions and minimum time
  // are fixed (many short repetitions) and win over the command line's. 0 when every ratio was
  // printed, 1 for an unknown option or when one could not be measured.
  static int runAtDescriptorLimits(int argc, char** argv, const std::string& measuredName, const Body& measured,
                                   const std::string& baselineName, const Body& baseline, const std::string& label);

 private:
  RatioReporter _reporter;
  bool _argumentsAccepted;
};

}  // namespace Bench

#endif
