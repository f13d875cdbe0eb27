// The row pool at the edges of its bitmap words: every row handed out once, lowest first.

#include <gtest/gtest.h>

#include <string>

#include "chip/InLifRowPool.h"

namespace Chip::test {
namespace {

TEST(InLifRowPool, HandsOutEveryRowOnceLowestFirst) {
  for (std::uint32_t capacity : {0u, 1u, 62u, 63u, 64u, 4095u, 4096u, 131071u}) {
    SCOPED_TRACE("capacity " + std::to_string(capacity));
    InLifRowPool pool(capacity);
    EXPECT_FALSE(pool.claim(InLifRow(0)));
    EXPECT_FALSE(pool.claim(InLifRow(capacity + 1)));
    for (std::uint32_t row = 1; row <= capacity; ++row) {
      auto const taken = pool.take();
      ASSERT_TRUE(taken.has_value());
      ASSERT_EQ(taken->value(), row);
    }
    EXPECT_FALSE(pool.take().has_value());
    EXPECT_EQ(pool.freeCount(), 0u);
    if (capacity <= 64) {
      continue;
    }
    // Freed rows in different words come back lowest first; a used row cannot be claimed.
    pool.give(InLifRow(capacity));
    pool.give(InLifRow(64));
    pool.give(InLifRow(63));
    EXPECT_FALSE(pool.claim(InLifRow(1)));
    EXPECT_TRUE(pool.claim(InLifRow(64)));
    EXPECT_EQ(pool.take(), InLifRow(63));
    EXPECT_EQ(pool.take(), InLifRow(capacity));
    EXPECT_FALSE(pool.take().has_value());
    pool.reset();
    EXPECT_EQ(pool.freeCount(), capacity);
    EXPECT_EQ(pool.take(), InLifRow(1));
  }
}

}  // namespace
}  // namespace Chip::test
