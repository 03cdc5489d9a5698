#include "Descriptor.h"

#include <unistd.h>

namespace Bench {

Descriptor::Descriptor(int fd) : _fd(fd) {}

Descriptor::~Descriptor() { reset(); }

int Descriptor::get() const { return _fd; }

void Descriptor::reset(int fd) {
  if (_fd >= 0) ::close(_fd);
  _fd = fd;
}

}  // namespace Bench
