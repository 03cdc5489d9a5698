#ifndef BENCH_DESCRIPTOR_H
#define BENCH_DESCRIPTOR_H

namespace Bench {

// Owns one file descriptor (an end of a pipe) and closes it on every path.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1);
  ~Descriptor();
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  // The descriptor, -1 when none is held; still owned by this object.
  int get() const;
  // Closes the held descriptor, if any, and takes fd.
  void reset(int fd = -1);

 private:
  int _fd;
};

}  // namespace Bench

#endif
