#include <Qiv/AutoMemory.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace {

TEST(AutoMemoryTest, AllocatesZeroedBlocks) {
  Qiv::AutoMemory memory;
  const unsigned char* block = static_cast<const unsigned char*>(memory.allocate(64));
  ASSERT_NE(nullptr, block);
  for (int i = 0; i < 64; ++i) EXPECT_EQ(0, block[i]) << "byte " << i;
  EXPECT_EQ(1u, memory.blockCount());
}

TEST(AutoMemoryTest, ZeroSizeStillGivesABlock) {
  Qiv::AutoMemory memory;
  void* first = memory.allocate(0);
  void* second = memory.allocate(0);
  EXPECT_NE(nullptr, first);
  EXPECT_NE(first, second);
  EXPECT_EQ(2u, memory.blockCount());
}

TEST(AutoMemoryTest, DuplicateCopiesText) {
  Qiv::AutoMemory memory;
  char source[] = "ManagedElement=1";
  char* copy = memory.duplicate(source);
  ASSERT_NE(nullptr, copy);
  EXPECT_NE(source, copy);
  source[0] = 'X';
  EXPECT_STREQ("ManagedElement=1", copy);
  EXPECT_EQ(1u, memory.blockCount());
}

TEST(AutoMemoryTest, DuplicateOfEmptyAndNull) {
  Qiv::AutoMemory memory;
  EXPECT_STREQ("", memory.duplicate(""));
  EXPECT_EQ(nullptr, memory.duplicate(nullptr));
  EXPECT_EQ(1u, memory.blockCount());
}

TEST(AutoMemoryTest, AdoptTakesOwnership) {
  Qiv::AutoMemory memory;
  void* block = std::malloc(16);
  EXPECT_EQ(block, memory.adopt(block));
  EXPECT_EQ(1u, memory.blockCount());
  EXPECT_EQ(nullptr, memory.adopt(nullptr));
  EXPECT_EQ(1u, memory.blockCount());
}

TEST(AutoMemoryTest, FreeAllEmptiesTheArena) {
  Qiv::AutoMemory memory;
  memory.allocate(8);
  memory.duplicate("text");
  memory.adopt(std::malloc(4));
  EXPECT_EQ(3u, memory.blockCount());
  memory.freeAll();
  EXPECT_EQ(0u, memory.blockCount());
  memory.allocate(8);
  EXPECT_EQ(1u, memory.blockCount());
}

}  // namespace
