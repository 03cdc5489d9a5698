#include <Qiv/AutoMemory.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace Qiv {

AutoMemory::~AutoMemory() { freeAll(); }

void* AutoMemory::allocate(std::size_t size) {
  // calloc(0) may legally give null; a zero-sized request still gets a block of its own.
  void* block = std::calloc(1, size != 0 ? size : 1);
  if (block == nullptr) throw std::bad_alloc();
  return adopt(block);
}

char* AutoMemory::duplicate(const char* text) {
  if (text == nullptr) return nullptr;
  const std::size_t size = std::strlen(text) + 1;
  char* copy = static_cast<char*>(allocate(size));
  std::memcpy(copy, text, size);
  return copy;
}

void* AutoMemory::adopt(void* block) {
  if (block == nullptr) return nullptr;
  try {
    _blocks.push_back(block);
  } catch (...) {
    // The block was handed over; it must not leak when it cannot be recorded.
    std::free(block);
    throw;
  }
  return block;
}

void AutoMemory::freeAll() {
  for (void* block : _blocks) std::free(block);
  _blocks.clear();
}

std::size_t AutoMemory::blockCount() const { return _blocks.size(); }

}  // namespace Qiv
