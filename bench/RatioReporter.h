#ifndef BENCH_RATIO_REPORTER_H
#define BENCH_RATIO_REPORTER_H

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace Bench {

// The console report, keeping each benchmark's median real time so that every measured
// benchmark can be set against its baseline at the end. May serve several runs of the library.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  // measured and baseline are benchmark function names; label names the measured one in the
  // ratio line ("ratio <label> / baseline ...").
  struct Comparison {
    std::string measured;
    std::string baseline;
    std::string label;
  };

  explicit RatioReporter(std::vector<Comparison> comparisons);

  void ReportRuns(const std::vector<Run>& runs) override;

  // Prints the ratio of the two medians of each comparison, and their difference, in order, on
  // standard output; false (and says so in that comparison's line) when a benchmark was filtered
  // out, failed or ran without repetitions.
  bool printRatios() const;

 private:
  struct Median {
    double realTime;
    benchmark::TimeUnit unit;
  };

  bool printRatio(const Comparison& comparison) const;

  std::vector<Comparison> _comparisons;
  std::map<std::string, Median> _medians;
};

}  // namespace Bench

#endif
