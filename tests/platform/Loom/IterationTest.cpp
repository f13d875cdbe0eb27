// Iteration over Loom::Collection and Loom::Set: key order, and changes made while iterating.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "Loom/Collection.h"
#include "Loom/Set.h"
#include "Loom/String.h"
#include "Netcore/IntfId.h"

namespace {

using Netcore::IntfId;
using Numbers = std::vector<std::uint32_t>;

struct KeyReactor {
  virtual ~KeyReactor() = default;
  virtual void onKey(Loom::String const&) = 0;
};

struct KeyLog : KeyReactor {
  void onKey(Loom::String const& key) override { keys.push_back(key.str()); }
  std::vector<std::string> keys;
};

// Notifying containers are keyed by heap-allocated strings, so a key read after its member is
// gone shows up as garbage rather than passing by luck.
Loom::String longKey(std::uint32_t n) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "a-pseudowire-with-a-long-name-%05u", n);
  return Loom::String(buf);
}
std::uint32_t numberOf(Loom::String const& key) {
  auto const n = static_cast<std::uint32_t>(std::stoul(key.str().substr(key.size() - 5)));
  return key == longKey(n) ? n : 0;  // 0: not a key this test made
}
std::uint32_t numberOf(IntfId key) { return key.pseudowireNumber(); }

// One container under test, with a uniform face: add / erase by number, and the element's
// number and key (a reference into the element, as range-for code naturally passes it).
template <class C>
struct Harness;

template <>
struct Harness<Loom::Collection<IntfId, int>> {
  Loom::Collection<IntfId, int> c;
  std::vector<std::string>* notified = nullptr;
  void add(std::uint32_t n) { c.set(IntfId::pseudowire(n), static_cast<int>(n)); }
  void erase(std::uint32_t n) { c.erase(IntfId::pseudowire(n)); }
  static IntfId const& keyOf(auto const& element) { return element.first; }
};

template <>
struct Harness<Loom::Collection<Loom::String, int, KeyReactor>> {
  Loom::Publisher<KeyReactor> publisher;
  Loom::Collection<Loom::String, int, KeyReactor> c{publisher, &KeyReactor::onKey};
  KeyLog log;
  std::vector<std::string>* notified = &log.keys;
  Harness() { publisher.subscribe(log); }
  void add(std::uint32_t n) { c.set(longKey(n), static_cast<int>(n)); }
  void erase(std::uint32_t n) { c.erase(longKey(n)); }
  static Loom::String const& keyOf(auto const& element) { return element.first; }
};

template <>
struct Harness<Loom::Set<IntfId>> {
  Loom::Set<IntfId> c;
  std::vector<std::string>* notified = nullptr;
  void add(std::uint32_t n) { c.insert(IntfId::pseudowire(n)); }
  void erase(std::uint32_t n) { c.erase(IntfId::pseudowire(n)); }
  static IntfId const& keyOf(IntfId const& element) { return element; }
};

template <>
struct Harness<Loom::Set<Loom::String, KeyReactor>> {
  Loom::Publisher<KeyReactor> publisher;
  Loom::Set<Loom::String, KeyReactor> c{publisher, &KeyReactor::onKey};
  KeyLog log;
  std::vector<std::string>* notified = &log.keys;
  Harness() { publisher.subscribe(log); }
  void add(std::uint32_t n) { c.insert(longKey(n)); }
  void erase(std::uint32_t n) { c.erase(longKey(n)); }
  static Loom::String const& keyOf(Loom::String const& element) { return element; }
};

template <class C>
class LoomIteration : public ::testing::Test {
 protected:
  // Visits every member in a range-for, running `step` on each, and returns the numbers seen.
  template <class Step>
  Numbers visit(Step step) {
    Numbers seen;
    for (auto const& element : h.c) {
      auto const n = numberOf(h.keyOf(element));
      seen.push_back(n);
      step(n, element);
    }
    return seen;
  }
  Numbers contents() {
    return visit([](std::uint32_t, auto const&) {});
  }
  void fill(Numbers const& numbers) {
    for (auto n : numbers) {
      h.add(n);
    }
  }
  // The keys notified since the last call, as numbers (notifying containers only).
  Numbers notifiedSinceLastCall() {
    Numbers result;
    if (h.notified) {
      for (auto const& key : *h.notified) {
        result.push_back(numberOf(Loom::String(key)));
      }
      h.notified->clear();
    }
    return result;
  }

  Harness<C> h;
};

using Containers =
    ::testing::Types<Loom::Collection<IntfId, int>, Loom::Collection<Loom::String, int, KeyReactor>,
                     Loom::Set<IntfId>, Loom::Set<Loom::String, KeyReactor>>;
TYPED_TEST_SUITE(LoomIteration, Containers);

TYPED_TEST(LoomIteration, VisitsMembersInAscendingKeyOrder) {
  this->fill({10, 2, 300, 1, 2});
  EXPECT_EQ(this->contents(), (Numbers{1, 2, 10, 300}));
}

TYPED_TEST(LoomIteration, ErasingTheCurrentMemberContinuesWithTheNext) {
  this->fill({1, 2, 3, 4, 5});
  this->notifiedSinceLastCall();
  auto const seen = this->visit([this](std::uint32_t n, auto const& element) {
    if (n % 2 == 1) {
      this->h.c.erase(this->h.keyOf(element));  // the key lives in the member being removed
    }
  });
  EXPECT_EQ(seen, (Numbers{1, 2, 3, 4, 5}));
  EXPECT_EQ(this->contents(), (Numbers{2, 4}));
  if (this->h.notified) {
    EXPECT_EQ(this->notifiedSinceLastCall(), (Numbers{1, 3, 5}));
  }
}

TYPED_TEST(LoomIteration, ErasingEveryMemberFromTheFirstEndsTheIteration) {
  this->fill({1, 2, 3});
  auto const seen = this->visit([this](std::uint32_t, auto const&) { this->h.c.clear(); });
  EXPECT_EQ(seen, (Numbers{1}));
  EXPECT_TRUE(this->h.c.empty());
}

TYPED_TEST(LoomIteration, MembersErasedAheadAreNotVisited) {
  this->fill({1, 2, 3, 4, 5, 6});
  auto const seen = this->visit([this](std::uint32_t n, auto const&) {
    if (n == 2) {
      this->h.erase(3);
      this->h.erase(5);
    }
  });
  EXPECT_EQ(seen, (Numbers{1, 2, 4, 6}));
}

TYPED_TEST(LoomIteration, MembersInsertedAheadAreVisitedAndBehindAreNot) {
  this->fill({2, 4});
  auto const seen = this->visit([this](std::uint32_t n, auto const&) {
    if (n == 2) {
      this->h.add(1);
      this->h.add(3);
      this->h.add(9);
    }
  });
  EXPECT_EQ(seen, (Numbers{2, 3, 4, 9}));
}

TYPED_TEST(LoomIteration, ReplacingTheCurrentMemberAfterErasingItDoesNotRevisitIt) {
  this->fill({1, 2, 3});
  auto const seen = this->visit([this](std::uint32_t n, auto const&) {
    if (n == 2) {
      this->h.erase(2);
      this->h.add(2);
      this->h.add(7);
    }
  });
  EXPECT_EQ(seen, (Numbers{1, 2, 3, 7}));
  EXPECT_EQ(this->contents(), (Numbers{1, 2, 3, 7}));
}

TEST(LoomIterationOrder, InterfaceIdsOrderByNumberWithTheEmptyIdFirst) {
  Loom::Collection<IntfId, int> byId;
  for (auto const* name : {"Pseudowire10", "Pseudowire2", "", "Pseudowire65535", "Pseudowire1"}) {
    byId.set(IntfId(name), 0);
  }
  std::vector<std::string> names;
  for (auto const& [id, value] : byId) {
    names.push_back(id.toString());
  }
  EXPECT_EQ(names, (std::vector<std::string>{"", "Pseudowire1", "Pseudowire2", "Pseudowire10",
                                             "Pseudowire65535"}));
}

}  // namespace
