#include "MallocFailure.h"

#include <atomic>

extern "C" void* __real_malloc(std::size_t size);

namespace {

std::atomic<std::size_t> armedSize(0);
std::atomic<bool> failed(false);

}  // namespace

extern "C" void* __wrap_malloc(std::size_t size) {
  std::size_t expected = size;
  if (size != 0 && armedSize.compare_exchange_strong(expected, 0)) {
    failed = true;
    return nullptr;
  }
  return __real_malloc(size);
}

void MallocFailure::failNextOfSize(std::size_t size) {
  failed = false;
  armedSize = size;
}

bool MallocFailure::hasFailed() { return failed; }
