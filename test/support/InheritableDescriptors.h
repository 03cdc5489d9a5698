#ifndef TEST_INHERITABLE_DESCRIPTORS_H
#define TEST_INHERITABLE_DESCRIPTORS_H

#include <fcntl.h>
#include <unistd.h>

// Two descriptors of this process on /dev/null that an exec would pass on (no close-on-exec):
// the lowest free number and one of 900 or above, far beyond any a child is handed. Closed when
// the object goes.
class InheritableDescriptors {
 public:
  InheritableDescriptors() : _low(open(0)), _high(open(HIGH)) {}
  ~InheritableDescriptors() {
    for (int fd : {_low, _high}) {
      if (fd >= 0) ::close(fd);
    }
  }
  InheritableDescriptors(const InheritableDescriptors&) = delete;
  InheritableDescriptors& operator=(const InheritableDescriptors&) = delete;

  // True when both are open and an exec would keep them.
  bool areInheritable() const { return isInheritable(_low) && isInheritable(_high); }

 private:
  static const int HIGH = 900;

  // The lowest free descriptor not below minimum, -1 when none could be opened.
  static int open(int minimum) {
    const int opened = ::open("/dev/null", O_RDONLY);
    if (opened < 0) return -1;
    const int fd = ::fcntl(opened, F_DUPFD, minimum);
    ::close(opened);
    return fd;
  }

  static bool isInheritable(int fd) {
    const int flags = ::fcntl(fd, F_GETFD);
    return flags != -1 && (flags & FD_CLOEXEC) == 0;
  }

  int _low;
  int _high;
};

#endif
