#include "UmaskCalls.h"

#include <atomic>

#include <sys/stat.h>

extern "C" mode_t __real_umask(mode_t mask);

namespace {

std::atomic<unsigned> calls(0);

}  // namespace

extern "C" mode_t __wrap_umask(mode_t mask) {
  ++calls;
  return __real_umask(mask);
}

unsigned UmaskCalls::count() { return calls; }
