#ifndef BENCH_RATIO_REPORTER_H
#define BENCH_RATIO_REPORTER_H

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace Bench {

// The console report, keeping each benchmark's median real time so that the measured
// benchmark can be set against its baseline at the end.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  // measured and baseline are benchmark function names; label names the measured one in the
  // ratio line ("ratio <label> / baseline ...").
  RatioReporter(std::string measured, std::string baseline, std::string label);

  void ReportRuns(const std::vector<Run>& runs) override;

  // Prints the ratio of the two medians on standard output; false (and says so) when a
  // benchmark was filtered out, failed or ran without repetitions.
  bool printRatio() const;

 private:
  struct Median {
    double realTime;
    benchmark::TimeUnit unit;
  };

  std::string _measured;
  std::string _baseline;
  std::string _label;
  std::map<std::string, Median> _medians;
};

}  // namespace Bench

#endif
