// How slabs take memory from the system: chunks that grow to huge-page chunks.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <vector>

#include "Loom/HugePageChunk.h"
#include "Loom/Slab.h"

namespace {

TEST(LoomHugePageChunk, IsAlignedToItsSizeWritableAndHandedOverByMoves) {
  Loom::HugePageChunk chunk;
  auto* const base = chunk.base();
  ASSERT_NE(base, nullptr);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(base) % Loom::HugePageChunk::kBytes, 0u);
  std::memset(base, 0xab, Loom::HugePageChunk::kBytes);
  Loom::HugePageChunk moved(std::move(chunk));
  EXPECT_EQ(chunk.base(), nullptr);
  EXPECT_EQ(moved.base(), base);
  EXPECT_EQ(static_cast<unsigned char>(moved.base()[Loom::HugePageChunk::kBytes - 1]), 0xab);
}

TEST(LoomSlab, ChunksGrowSoThatManyObjectsTakeFewChunks) {
  // 40-byte objects: 256 in the first chunk (10 KiB), doubling chunks up to 256 KiB, then 2 MiB
  // chunks.
  // Trackers stay registered for the process, and so does this slab.
  static Loom::SlabAllocator slab(40, 8, "Test::SlabChunks");
  std::set<std::uintptr_t> objects;
  for (int i = 0; i < 300000; ++i) {
    auto const address = reinterpret_cast<std::uintptr_t>(slab.allocate(40));
    EXPECT_EQ(address % 8, 0u);
    objects.insert(address);
  }
  EXPECT_EQ(objects.size(), 300000u);
  // Fixed chunks of 256 would be 1172; doubling reaches 256 KiB after 5 (500 KiB), and the
  // other 11.5 MiB fill six huge-page chunks.
  EXPECT_LE(slab.chunkCount(), 12u);
  EXPECT_EQ(slab.tracker().live(), 300000u);
  for (auto const address : objects) {
    slab.deallocate(reinterpret_cast<void*>(address));
  }
  EXPECT_EQ(slab.tracker().live(), 0u);
}

}  // namespace
