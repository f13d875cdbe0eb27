// Iteration over Loom::Collection and Loom::Set: key order, and changes made while iterating.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <type_traits>
#include <vector>

#include "Loom/Collection.h"
#include "Loom/Set.h"
#include "Loom/String.h"
#include "Netcore/IntfId.h"

namespace {

using Netcore::IntfId;
using Numbers = std::vector<std::uint32_t>;

// The reactor interface of the notifying containers; it records the keys it is given.
struct KeyLog {
  void onKey(Loom::String const& key) { keys.push_back(key); }
  std::vector<Loom::String> keys;
};

// Notifying containers are keyed by heap-allocated strings, so that a key read after its member
// is gone shows up as garbage instead of passing by luck.
Loom::String longKey(std::uint32_t n) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "a-pseudowire-with-a-long-name-%05u", n);
  return Loom::String(buf);
}
std::uint32_t numberOf(Loom::String const& key) {
  auto const n = static_cast<std::uint32_t>(std::stoul(key.str().substr(key.size() - 5)));
  return key == longKey(n) ? n : 0;  // 0: not a key this test made
}
std::uint32_t numberOf(IntfId key) {
  return key.pseudowireNumber();
}

template <class C>
class LoomIteration : public ::testing::Test {
 protected:
  using K = typename C::key_type;
  static constexpr bool kNotifies = std::is_same_v<K, Loom::String>;

  LoomIteration() { publisher.subscribe(log); }

  static K key(std::uint32_t n) {
    if constexpr (kNotifies) {
      return longKey(n);
    } else {
      return IntfId::pseudowire(n);
    }
  }
  // A reference into the element, as range-for code naturally passes it on.
  static K const& keyOf(auto const& element) {
    if constexpr (requires { element.first; }) {
      return element.first;
    } else {
      return element;
    }
  }
  void add(std::uint32_t n) {
    if constexpr (requires { c.insert(key(n)); }) {
      c.insert(key(n));
    } else {
      c.set(key(n), 0);
    }
  }
  void fill(Numbers const& numbers) {
    for (auto n : numbers) {
      add(n);
    }
  }
  // Runs `step` on every member reached by a range-for; returns the numbers reached.
  Numbers visit(auto step) {
    Numbers seen;
    for (auto const& element : c) {
      seen.push_back(numberOf(keyOf(element)));
      step(seen.back(), element);
    }
    return seen;
  }
  Numbers contents() {
    return visit([](std::uint32_t, auto const&) {});
  }
  static C makeContainer(Loom::Publisher<KeyLog>& p) {
    if constexpr (kNotifies) {
      return C(p, &KeyLog::onKey);
    } else {
      return C();
    }
  }

  Loom::Publisher<KeyLog> publisher;
  KeyLog log;
  C c = makeContainer(publisher);
};

using Containers =
    ::testing::Types<Loom::Collection<IntfId, int>, Loom::Collection<Loom::String, int, KeyLog>,
                     Loom::Set<IntfId>, Loom::Set<Loom::String, KeyLog>>;
TYPED_TEST_SUITE(LoomIteration, Containers);

TYPED_TEST(LoomIteration, VisitsMembersInAscendingKeyOrder) {
  this->fill({10, 2, 300, 1, 2});
  EXPECT_EQ(this->contents(), (Numbers{1, 2, 10, 300}));
}

TYPED_TEST(LoomIteration, ErasingTheCurrentMemberContinuesWithTheNext) {
  this->fill({1, 2, 3, 4, 5});
  this->log.keys.clear();
  auto const seen = this->visit([this](std::uint32_t n, auto const& element) {
    if (n % 2 == 1) {
      this->c.erase(this->keyOf(element));  // the key lives in the member being removed
    }
  });
  EXPECT_EQ(seen, (Numbers{1, 2, 3, 4, 5}));
  EXPECT_EQ(this->contents(), (Numbers{2, 4}));
  if constexpr (TestFixture::kNotifies) {
    EXPECT_EQ(this->log.keys, (std::vector{longKey(1), longKey(3), longKey(5)}));
  }
}

TYPED_TEST(LoomIteration, MembersErasedAheadAreSkipped) {
  this->fill({1, 2, 3, 4, 5, 6});
  auto const seen = this->visit([this](std::uint32_t n, auto const&) {
    if (n == 2) {
      this->c.erase(this->key(3));
      this->c.erase(this->key(5));
    } else if (n == 4) {
      this->c.clear();
    }
  });
  EXPECT_EQ(seen, (Numbers{1, 2, 4}));
}

TYPED_TEST(LoomIteration, MembersInsertedAheadAreVisitedAndBehindAreNot) {
  this->fill({2, 4});
  auto const seen = this->visit([this](std::uint32_t n, auto const&) {
    if (n == 2) {
      this->c.erase(this->key(2));
      this->fill({1, 2, 3, 9});  // 2 again: behind the position, already visited
    }
  });
  EXPECT_EQ(seen, (Numbers{2, 3, 4, 9}));
  EXPECT_EQ(this->contents(), (Numbers{1, 2, 3, 4, 9}));
}

}  // namespace
