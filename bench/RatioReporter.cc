#include "RatioReporter.h"

#include <cstdio>
#include <utility>

#include <unistd.h>

namespace Bench {

// Colours only on a terminal.
RatioReporter::RatioReporter(std::vector<Comparison> comparisons)
    : ConsoleReporter(::isatty(STDOUT_FILENO) ? OO_Defaults : OO_Tabular), _comparisons(std::move(comparisons)) {}

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median" && !run.error_occurred) {
      _medians[run.run_name.function_name] = {run.GetAdjustedRealTime(), run.time_unit};
    }
  }
  ConsoleReporter::ReportRuns(runs);
}

bool RatioReporter::printRatios() const {
  bool all = true;
  for (const Comparison& comparison : _comparisons) all = printRatio(comparison) && all;
  return all;
}

bool RatioReporter::printRatio(const Comparison& comparison) const {
  const char* label = comparison.label.c_str();
  const auto measured = _medians.find(comparison.measured);
  const auto baseline = _medians.find(comparison.baseline);
  // Times in different units would make the quotient meaningless.
  if (measured == _medians.end() || baseline == _medians.end() || baseline->second.realTime <= 0 ||
      measured->second.unit != baseline->second.unit) {
    std::printf("ratio %s / baseline: not measured (both benchmarks must run and succeed)\n", label);
    return false;
  }
  const char* unit = benchmark::GetTimeUnitString(measured->second.unit);
  std::printf("ratio %s / baseline (median real time): %.2f (%.0f %s / %.0f %s, difference %+.0f %s)\n", label,
              measured->second.realTime / baseline->second.realTime, measured->second.realTime, unit,
              baseline->second.realTime, unit, measured->second.realTime - baseline->second.realTime, unit);
  return true;
}

}  // namespace Bench
