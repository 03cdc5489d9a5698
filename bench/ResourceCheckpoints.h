#ifndef BENCH_RESOURCE_CHECKPOINTS_H
#define BENCH_RESOURCE_CHECKPOINTS_H

#include "ProcessResources.h"

#include <cstddef>
#include <string>
#include <vector>

namespace Bench {

// The soak's record: samples of the process's resources taken at named checkpoints, and the
// stretches between two checkpoints over which nothing may grow. Not thread-safe.
class ResourceCheckpoints {
 public:
  // residentToleranceKb: how far VmRSS may rise over a stretch before it counts as growth.
  explicit ResourceCheckpoints(long residentToleranceKb);

  // Samples the process now (ProcessResources::sample, which may throw) and keeps it under
  // label; returns the checkpoint's index.
  std::size_t take(const std::string& label);

  // Over the operations (unit names them, plural) done from checkpoint from to checkpoint to,
  // descriptors, threads and children must not grow at all and VmRSS not by more than the
  // tolerance. Throws std::logic_error unless from < to and both were taken.
  void expectNoGrowth(const std::string& workload, std::size_t from, std::size_t to, long operations,
                      const std::string& unit);
  // The same, but VmRSS may also rise by what it rose from checkpoint referenceFrom to
  // referenceTo: over as much of the same work done without the component (reference names it),
  // whose growth is not the component's.
  void expectNoGrowthBeyond(const std::string& workload, std::size_t from, std::size_t to, long operations,
                            const std::string& unit, const std::string& reference, std::size_t referenceFrom,
                            std::size_t referenceTo);

  // Prints the table of every checkpoint, then one line per stretch with what grew, on standard
  // output. True when nothing grew.
  bool report() const;

 private:
  struct Checkpoint {
    std::string label;
    ProcessResources resources;
  };
  struct Stretch {
    std::string workload;
    std::size_t from;
    std::size_t to;
    long operations;
    std::string unit;
    // Empty: no reference.
    std::string reference;
    std::size_t referenceFrom;
    std::size_t referenceTo;
  };

  void requireStretch(std::size_t from, std::size_t to) const;
  long growthKb(std::size_t from, std::size_t to) const;

  // Prints the stretch's line; true when nothing grew over it.
  bool reportStretch(const Stretch& stretch) const;

  long _residentToleranceKb;
  std::vector<Checkpoint> _checkpoints;
  std::vector<Stretch> _stretches;
};

}  // namespace Bench

#endif
