#ifndef BENCH_PROCESS_RESOURCES_H
#define BENCH_PROCESS_RESOURCES_H

namespace Bench {

// What this process holds at one moment, as the kernel counts it: open descriptors, threads,
// child processes not yet reaped (running or zombie) and resident memory.
class ProcessResources {
 public:
  // Reads /proc. The descriptor that lists /proc/self/fd is not counted. Throws
  // std::runtime_error when /proc/self cannot be read.
  static ProcessResources sample();

  long descriptors = 0;
  long threads = 0;
  long children = 0;
  long residentKb = 0;
};

}  // namespace Bench

#endif
