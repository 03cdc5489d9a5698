#ifndef QIV_AUTO_MEMORY_H
#define QIV_AUTO_MEMORY_H

#include <cstddef>
#include <vector>

namespace Qiv {

// An arena of malloc'ed blocks, all freed together by freeAll() or the destructor.
class AutoMemory {
 public:
  AutoMemory() = default;
  ~AutoMemory();
  AutoMemory(const AutoMemory&) = delete;
  AutoMemory& operator=(const AutoMemory&) = delete;

  // A zeroed block of size bytes owned by the arena. Throws std::bad_alloc.
  void* allocate(std::size_t size);
  // A copy of text owned by the arena (null stays null).
  char* duplicate(const char* text);
  // Takes ownership of a malloc'ed block; returns it.
  void* adopt(void* block);

  void freeAll();
  std::size_t blockCount() const;

 private:
  std::vector<void*> _blocks;
};

}  // namespace Qiv

#endif
