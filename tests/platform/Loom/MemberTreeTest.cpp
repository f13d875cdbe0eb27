// The members of Loom::Collection and Loom::Set under the write shortcuts (appending in key
// order, reading back the member just written) and the slab that holds them: whatever the order
// of writes, reads and removals, the containers answer as an ordered map would.

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "Loom/Collection.h"
#include "Loom/Set.h"
#include "Loom/SlabNodeAllocator.h"
#include "Loom/String.h"

namespace {

enum class Op { set, erase, find };
struct Step {
  Op op;
  std::uint32_t key;
  int value = 0;
};

// Key orders that take the different paths: always above every present key, always below,
// reading back and removing the member just written, and random; and, over thousands of
// members so that the tree is several levels deep, filling and draining from either end, from
// the middle, and at random (splits, merges and moves between siblings at every level).
std::vector<std::pair<char const*, std::vector<Step>>> sequences() {
  std::vector<Step> ascending, descending, readBack, shuffled, drainFront, drainBack, drainMiddle,
      churn;
  for (std::uint32_t k = 1; k <= 300; ++k) {
    ascending.push_back({Op::set, k, int(k)});
    descending.push_back({Op::set, 301 - k, int(k)});
    readBack.push_back({Op::set, k % 97, int(k)});
    readBack.push_back({Op::find, k % 97});
    if (k % 3 == 0) {
      readBack.push_back({Op::erase, k % 97});
      readBack.push_back({Op::find, k % 97});
      readBack.push_back({Op::set, k % 97 + 1, -int(k)});
    }
  }
  std::mt19937 random(7);
  for (int i = 0; i < 3000; ++i) {
    auto const op = static_cast<Op>(random() % 3);
    shuffled.push_back({op, std::uint32_t(random() % 200), int(random() % 1000)});
  }
  constexpr std::uint32_t kMany = 5000;
  for (std::uint32_t k = 0; k < kMany; ++k) {
    for (auto* fill : {&drainFront, &drainBack, &drainMiddle}) {
      fill->push_back({Op::set, k, int(k)});
    }
  }
  for (std::uint32_t k = 0; k < kMany; ++k) {
    drainFront.push_back({Op::erase, k});
    drainBack.push_back({Op::erase, kMany - 1 - k});
    drainMiddle.push_back({Op::erase, k % 2 ? kMany / 2 + k / 2 : kMany / 2 - 1 - k / 2});
  }
  for (int i = 0; i < 60000; ++i) {
    // Mostly writes in the first half, mostly removals in the second.
    bool const write = int(random() % 60000) > i - 10000;
    churn.push_back({write ? Op::set : Op::erase, std::uint32_t(random() % 8000), i});
  }
  return {{"ascending", ascending},
          {"descending", descending},
          {"read back and remove", readBack},
          {"random", shuffled},
          {"drain from the front", drainFront},
          {"drain from the back", drainBack},
          {"drain from the middle", drainMiddle},
          {"churn", churn}};
}

// Long keys live on the heap, so that a read of a removed member's key shows up under ASan.
Loom::String key(std::uint32_t k) {
  return Loom::String("a-key-long-enough-to-leave-the-string-" + std::to_string(100000 + k));
}

TEST(LoomMemberTree, CollectionAnswersAsAnOrderedMapWould) {
  for (auto const& [name, steps] : sequences()) {
    SCOPED_TRACE(name);
    Loom::Collection<Loom::String, int> collection;
    std::map<Loom::String, int> model;
    for (auto const& step : steps) {
      auto const k = key(step.key);
      // Read first, as handlers do before they write or remove the same key.
      ASSERT_EQ(collection.has(k), model.contains(k));
      if (step.op == Op::set) {
        collection.set(k, step.value);
        model[k] = step.value;
      } else if (step.op == Op::erase) {
        EXPECT_EQ(collection.erase(k), model.erase(k) == 1);
      }
      ASSERT_EQ(collection.has(k), model.contains(k));
      ASSERT_EQ(collection.valueOr(k, -1), model.contains(k) ? model[k] : -1);
      ASSERT_EQ(collection.size(), model.size());
    }
    using Members = std::vector<std::pair<Loom::String, int>>;
    EXPECT_EQ(Members(collection.begin(), collection.end()), Members(model.begin(), model.end()));
  }
}

TEST(LoomMemberTree, SetAnswersAsAnOrderedSetWould) {
  for (auto const& [name, steps] : sequences()) {
    SCOPED_TRACE(name);
    Loom::Set<std::uint32_t> set;
    std::set<std::uint32_t> model;
    for (auto const& step : steps) {
      if (step.op == Op::set) {
        set.insert(step.key);
        model.insert(step.key);
      } else if (step.op == Op::erase) {
        EXPECT_EQ(set.erase(step.key), model.erase(step.key) == 1);
      }
      ASSERT_EQ(set.has(step.key), model.contains(step.key));
      if (&step - steps.data() == std::ptrdiff_t(steps.size() / 2)) {
        ASSERT_EQ(std::vector<std::uint32_t>(set.begin(), set.end()),
                  std::vector<std::uint32_t>(model.begin(), model.end()));
      }
    }
    EXPECT_EQ(std::vector<std::uint32_t>(set.begin(), set.end()),
              std::vector<std::uint32_t>(model.begin(), model.end()));
  }
}

// A notifying collection of numbers and the reactor `Reactor` on it, which reads the
// collection from its handler; the reactor subscribes once the test has filled it.
template <class Reactor>
struct Watched {
  Watched() { reactor.collection = &collection; }
  void watch() { publisher.subscribe(reactor); }

  Loom::Publisher<Reactor> publisher;
  Reactor reactor;
  Loom::Collection<std::uint32_t, int, Reactor> collection{publisher, &Reactor::onMember};
};

// Reads the member back, and counts the members, while the change is being notified.
struct ReadBack {
  void onMember(std::uint32_t const& k) {
    seen.push_back(collection->valueOr(k, -1));
    sizes.push_back(collection->size());
  }
  Loom::Collection<std::uint32_t, int, ReadBack>* collection = nullptr;
  std::vector<int> seen;
  std::vector<std::size_t> sizes;
};

TEST(LoomMemberTree, ReactorsSeeEachChangeAlreadyMade) {
  Watched<ReadBack> w;
  w.watch();
  w.collection.set(5, 1);
  w.collection.set(3, 2);
  w.collection.set(5, 3);
  w.collection.erase(5);
  w.collection.set(5, 4);
  w.collection.clear();  // one member at a time
  EXPECT_EQ(w.reactor.seen, (std::vector<int>{1, 2, 3, -1, 4, -1, -1}));
  EXPECT_EQ(w.reactor.sizes, (std::vector<std::size_t>{1, 2, 2, 1, 2, 1, 0}));
}

// Puts a removed key back, from the removal's notification or from a nested one.
struct PutBack {
  void onMember(std::uint32_t const& k) {
    auto& c = *collection;
    if (k == 1 && !c.has(1)) {
      c.erase(2);
      log.push_back(c.valueOr(1, -1));
    } else if (k == 2 && !c.has(2)) {
      c.set(1, 10);
      c.set(3, 3);  // so that 1 is no longer the member last written
    }
  }
  Loom::Collection<std::uint32_t, int, PutBack>* collection = nullptr;
  std::vector<int> log;
};

TEST(LoomMemberTree, AKeyPutBackDuringItsRemovalIsPresent) {
  Watched<PutBack> w;
  w.collection.set(1, 1);
  w.collection.set(2, 2);
  w.watch();
  w.collection.erase(1);  // removing 2 puts 1 back
  EXPECT_EQ(w.reactor.log, std::vector<int>{10});
  EXPECT_TRUE(w.collection.has(3));
  EXPECT_TRUE(w.collection.has(1));
  EXPECT_EQ(w.collection.valueOr(1, -1), 10);
  EXPECT_FALSE(w.collection.has(2));
}

struct Node {
  std::uint64_t words[4];
};

TEST(LoomSlabNodeAllocator, SingleNodesComeFromTheSlabOfTheirType) {
  auto const* tracker = [] {
    Loom::SlabNodeAllocator<Node> allocator;
    allocator.deallocate(allocator.allocate(1), 1);
    return Loom::AllocationTracker::find(typeid(Node).name());
  }();
  ASSERT_NE(tracker, nullptr);
  auto const live = tracker->live();
  Loom::SlabNodeAllocator<Node> allocator;
  auto* const one = allocator.allocate(1);
  auto* const several = allocator.allocate(3);
  EXPECT_EQ(tracker->live(), live + 1);  // arrays come from the default allocator
  allocator.deallocate(several, 3);
  allocator.deallocate(one, 1);
  EXPECT_EQ(tracker->live(), live);
}

}  // namespace
