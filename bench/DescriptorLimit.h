#ifndef BENCH_DESCRIPTOR_LIMIT_H
#define BENCH_DESCRIPTOR_LIMIT_H

#include <sys/resource.h>

#include <vector>

namespace Bench {

// The process's soft limit on open descriptors, set while the object lives and put back after.
// What a launcher that closes every possible descriptor pays grows with it.
class DescriptorLimit {
 public:
  // Throws std::runtime_error when the limit cannot be set (above the hard limit).
  explicit DescriptorLimit(rlim_t soft);
  ~DescriptorLimit();
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

  // The limits a benchmark is run at: 1024, the usual default, and the hard limit, the highest
  // this process may set itself (a management framework runs with a high one); only the hard
  // limit when it is not above 1024.
  static std::vector<rlim_t> compared();

 private:
  rlimit _previous;
};

}  // namespace Bench

#endif
