#include "ResourceCheckpoints.h"

#include <cstdio>
#include <stdexcept>

namespace Bench {

ResourceCheckpoints::ResourceCheckpoints(long residentToleranceKb) : _residentToleranceKb(residentToleranceKb) {}

std::size_t ResourceCheckpoints::take(const std::string& label) {
  _checkpoints.push_back({label, ProcessResources::sample()});
  return _checkpoints.size() - 1;
}

void ResourceCheckpoints::expectNoGrowth(const std::string& workload, std::size_t from, std::size_t to,
                                         long operations, const std::string& unit) {
  requireStretch(from, to);
  _stretches.push_back({workload, from, to, operations, unit, "", 0, 0});
}

void ResourceCheckpoints::expectNoGrowthBeyond(const std::string& workload, std::size_t from, std::size_t to,
                                               long operations, const std::string& unit,
                                               const std::string& reference, std::size_t referenceFrom,
                                               std::size_t referenceTo) {
  requireStretch(from, to);
  requireStretch(referenceFrom, referenceTo);
  _stretches.push_back({workload, from, to, operations, unit, reference, referenceFrom, referenceTo});
}

bool ResourceCheckpoints::report() const {
  std::printf("%3s  %-70s %11s %8s %9s %10s\n", "#", "checkpoint", "descriptors", "threads", "children", "VmRSS kB");
  for (std::size_t i = 0; i < _checkpoints.size(); ++i) {
    const ProcessResources& resources = _checkpoints[i].resources;
    std::printf("%3zu  %-70s %11ld %8ld %9ld %10ld\n", i, _checkpoints[i].label.c_str(), resources.descriptors,
                resources.threads, resources.children, resources.residentKb);
  }
  bool steady = true;
  for (const Stretch& stretch : _stretches) steady = reportStretch(stretch) && steady;
  return steady;
}

void ResourceCheckpoints::requireStretch(std::size_t from, std::size_t to) const {
  if (from >= to || to >= _checkpoints.size()) throw std::logic_error("no such stretch of checkpoints");
}

long ResourceCheckpoints::growthKb(std::size_t from, std::size_t to) const {
  return _checkpoints[to].resources.residentKb - _checkpoints[from].resources.residentKb;
}

bool ResourceCheckpoints::reportStretch(const Stretch& stretch) const {
  const ProcessResources& before = _checkpoints[stretch.from].resources;
  const ProcessResources& after = _checkpoints[stretch.to].resources;
  const long descriptors = after.descriptors - before.descriptors;
  const long threads = after.threads - before.threads;
  const long children = after.children - before.children;
  const long residentKb = growthKb(stretch.from, stretch.to);
  std::string beyond;
  long ownKb = residentKb;
  if (!stretch.reference.empty()) {
    const long referenceKb = growthKb(stretch.referenceFrom, stretch.referenceTo);
    ownKb -= referenceKb;
    beyond = " (" + stretch.reference + " #" + std::to_string(stretch.referenceFrom) + " -> #" +
             std::to_string(stretch.referenceTo) + ": " + std::to_string(referenceKb) + " kB; beyond that " +
             std::to_string(ownKb) + " kB)";
  }
  const bool steady = descriptors <= 0 && threads <= 0 && children <= 0 && ownKb <= _residentToleranceKb;
  // The smallest steady leak per operation that the tolerance no longer lets through.
  const long detectableBytes = _residentToleranceKb * 1024 / (stretch.operations > 0 ? stretch.operations : 1) + 1;
  std::printf("%s, #%zu -> #%zu (%ld %s): descriptors %+ld, threads %+ld, children %+ld, VmRSS %+ld kB%s; "
              "allowed %ld kB, so a leak of %ld bytes per operation would show: %s\n",
              stretch.workload.c_str(), stretch.from, stretch.to, stretch.operations, stretch.unit.c_str(), descriptors,
              threads, children, residentKb, beyond.c_str(), _residentToleranceKb, detectableBytes,
              steady ? "steady" : "GREW");
  return steady;
}

}  // namespace Bench
