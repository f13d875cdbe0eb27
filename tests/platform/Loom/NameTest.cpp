// Interned names stand in for strings in keys: they must order, compare and hash exactly as the
// strings do, and give their text back to the pool when the last handle goes.

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Loom/Name.h"
#include "Loom/String.h"

namespace {

TEST(LoomName, OrdersComparesAndHashesAsItsText) {
  std::vector<Loom::String> const texts{"",       "a",      "b",
                                        "ab",     "vpls-1", "vpls-10",
                                        "vpls-2", "\xff",   "a-name-longer-than-the-short-form"};
  for (auto const& a : texts) {
    for (auto const& b : texts) {
      SCOPED_TRACE(a.str() + " / " + b.str());
      Loom::Name const na(a);
      Loom::Name const nb(b);
      EXPECT_EQ(na <=> nb, a <=> b);
      EXPECT_EQ(na == nb, a == b);
    }
    EXPECT_EQ(Loom::Name(a).hash(7), a.hash(7));
    EXPECT_EQ(Loom::Name(a).str(), a);
  }
}

TEST(LoomName, ATextLivesWhileAHandleRefersToIt) {
  auto const before = Loom::Name::interned();
  {
    Loom::Name first(Loom::String("only-in-this-test"));
    Loom::Name copy = first;
    Loom::Name moved = std::move(first);
    EXPECT_EQ(Loom::Name::interned(), before + 1);
    EXPECT_EQ(copy, moved);
    copy = Loom::Name(Loom::String("another-one-in-this-test"));
    EXPECT_EQ(Loom::Name::interned(), before + 2);
    EXPECT_EQ(moved.str(), "only-in-this-test");
  }
  EXPECT_EQ(Loom::Name::interned(), before);
}

}  // namespace
