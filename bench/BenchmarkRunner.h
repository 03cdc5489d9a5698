#ifndef BENCH_BENCHMARK_RUNNER_H
#define BENCH_BENCHMARK_RUNNER_H

#include <string>

namespace Bench {

// The main program of a benchmark measured against its baseline: runs every registered
// benchmark with their repetitions interleaved, then prints the ratio of the two medians.
class BenchmarkRunner {
 public:
  // measured, baseline and label as for RatioReporter. Google Benchmark options in argv are
  // honoured and win over the interleaving this adds. The exit status for main: 0 when the
  // ratio was printed, 1 for an unknown option or when it could not be measured.
  static int run(int argc, char** argv, const std::string& measured, const std::string& baseline,
                 const std::string& label);
};

}  // namespace Bench

#endif
