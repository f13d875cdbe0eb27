// Node lifetime through Loom::Ptr, and slab allocation of records.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "Loom/Ptr.h"
#include "Loom/Slab.h"
#include "Loom/Threading.h"
#include "Loom/TypeData.h"

namespace {

struct Counts {
  int constructed = 0;
  int destroyed = 0;
};

Loom::TypeData const& testType() {
  static Loom::TypeData const type("Test::Node", {});
  return type;
}

class Counted : public Loom::Node {
 public:
  explicit Counted(Counts& counts) : counts_(counts) { ++counts_.constructed; }
  ~Counted() override { ++counts_.destroyed; }
  Loom::TypeData const& typeData() const override { return testType(); }

 private:
  Counts& counts_;
};

class CountedChild : public Counted {
 public:
  using Counted::Counted;
};

TEST(LoomPtr, UseCountFollowsEveryCopyMoveAndConversion) {
  Counts counts;
  {
    auto p = Loom::make<Counted>(counts);
    EXPECT_EQ(p->useCount(), 1u);

    auto copy = p;
    EXPECT_EQ(p->useCount(), 2u);
    auto moved = std::move(copy);
    EXPECT_FALSE(copy);
    EXPECT_EQ(p->useCount(), 2u);

    Loom::Ptr<Counted const> readOnly = p;
    Loom::Ptr<Loom::Node> base = p;
    EXPECT_EQ(p->useCount(), 4u);
    Loom::Ptr<Counted const> readOnlyMoved = std::move(moved);
    EXPECT_FALSE(moved);
    EXPECT_EQ(p->useCount(), 4u);
    EXPECT_TRUE(readOnlyMoved == p);

    auto& alias = p;
    p = alias;
    p = std::move(alias);
    EXPECT_TRUE(p);
    EXPECT_EQ(p->useCount(), 4u);

    EXPECT_TRUE(Loom::dynamicPtrCast<Counted>(base) == p);
    EXPECT_EQ(p->useCount(), 4u);  // the cast's temporary use is gone again
    auto const downcast = Loom::dynamicPtrCast<Counted const>(Loom::Ptr<Loom::Node const>(base));
    EXPECT_EQ(p->useCount(), 5u);
    EXPECT_FALSE(Loom::dynamicPtrCast<CountedChild>(base));
    EXPECT_EQ(p->useCount(), 5u);

    readOnly = nullptr;
    base = nullptr;
    readOnlyMoved = Loom::Ptr<Counted const>();
    EXPECT_EQ(p->useCount(), 2u);
    EXPECT_EQ(counts.destroyed, 0);
  }
  EXPECT_EQ(counts.constructed, 1);
  EXPECT_EQ(counts.destroyed, 1);
}

TEST(LoomPtr, ReassigningReleasesTheOldNodeAndOnlyTheLastReleaseDestroys) {
  Counts first, second;
  auto p = Loom::make<Counted>(first);
  auto keep = p;
  Loom::Ptr<Loom::Node> child = Loom::make<CountedChild>(second);
  p = Loom::dynamicPtrCast<CountedChild>(child);  // one of two uses of the first node
  EXPECT_EQ(first.destroyed, 0);
  keep = p;  // the last one
  EXPECT_EQ(first.destroyed, 1);
  child = p = nullptr;
  EXPECT_EQ(second.destroyed, 0);
  keep = nullptr;
  EXPECT_EQ(second.destroyed, 1);
  EXPECT_EQ(first.destroyed, 1);
}

// Restores single-threaded use counting however the test ends.
struct MultiThreaded {
  MultiThreaded() { Loom::Threading::multiThreadedIs(true); }
  ~MultiThreaded() { Loom::Threading::multiThreadedIs(false); }
};

TEST(LoomPtr, ConcurrentCopiesDestroyExactlyOnce) {
  constexpr int kCopies = 1000000;
  Counts counts;
  {
    MultiThreaded const multiThreaded;
    auto shared = Loom::make<Counted>(counts);
    std::atomic<int> ready{0};
    auto worker = [&ready](Loom::Ptr<Counted> mine) {
      ++ready;
      while (ready.load() < 2) {
      }
      for (int i = 0; i < kCopies; ++i) {
        Loom::Ptr<Counted> copy = mine;
        Loom::Ptr<Counted const> readOnly = copy;
        Loom::Ptr<Loom::Node> base = std::move(copy);
      }
    };
    std::thread first(worker, shared);
    std::thread second(worker, shared);
    shared = nullptr;  // one of the workers lets go last
    first.join();
    second.join();
  }
  EXPECT_FALSE(Loom::Threading::multiThreaded());
  EXPECT_EQ(counts.constructed, 1);
  EXPECT_EQ(counts.destroyed, 1);
}

class SlabRecord : public Loom::Node {
 public:
  LOOM_SLAB_ALLOCATED(SlabRecord, "Test::Record")
  Loom::TypeData const& typeData() const override { return testType(); }
  long payload[5] = {};
};

TEST(LoomSlab, TracksAllocationsAndReusesFreedSlots) {
  auto const& tracker = SlabRecord::allocationTracker();
  EXPECT_EQ(Loom::AllocationTracker::find("Test::Record"), &tracker);
  EXPECT_EQ(tracker.typeName(), "Test::Record");
  EXPECT_EQ(Loom::AllocationTracker::find("Test::NeverAllocated"), nullptr);
  auto const live = tracker.live();
  auto const total = tracker.total();

  std::vector<Loom::Ptr<SlabRecord>> records;
  std::set<void const*> firstRound;
  for (int i = 0; i < 1000; ++i) {
    records.push_back(Loom::make<SlabRecord>());
    firstRound.insert(records.back().get());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(records.back().get()) % alignof(SlabRecord), 0u);
  }
  auto const extraUse = records.front();
  records.clear();
  EXPECT_EQ(firstRound.size(), 1000u);
  EXPECT_EQ(tracker.live(), live + 1);  // the one still in use
  EXPECT_EQ(tracker.total(), total + 1000);

  auto const chunks = Loom::slabFor<SlabRecord>("Test::Record").chunkCount();
  for (int i = 0; i < 999; ++i) {
    records.push_back(Loom::make<SlabRecord>());
    EXPECT_TRUE(firstRound.contains(records.back().get()));
    EXPECT_NE(records.back(), extraUse);
  }
  EXPECT_EQ(Loom::slabFor<SlabRecord>("Test::Record").chunkCount(), chunks);
  EXPECT_EQ(tracker.live(), live + 1000);
  EXPECT_EQ(tracker.total(), total + 1999);
}

}  // namespace
