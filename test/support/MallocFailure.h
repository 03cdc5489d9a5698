#ifndef TEST_MALLOC_FAILURE_H
#define TEST_MALLOC_FAILURE_H

#include <cstddef>

// Makes one malloc of the test binary's own objects (the component's among them) fail, for the
// paths that only an exhausted heap reaches. The binary is linked with --wrap=malloc; libraries
// it loads are not affected.
class MallocFailure {
 public:
  // The next malloc of exactly size bytes returns null; later ones succeed again.
  static void failNextOfSize(std::size_t size);
  // Whether the armed failure has happened.
  static bool hasFailed();
};

#endif
