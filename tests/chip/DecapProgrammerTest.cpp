// The decap programmer against real request, SEM and in-LIF entities: what reaches the shadows
// at each commit, which rows entries keep, who waits, and what a restore rebuilds.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "chip/DecapProgrammer.h"

namespace Chip::test {
namespace {

using Hardware::Marl::AradIhpLifEntry;
using Hardware::Marl::AradIhpLifTable;
using Hardware::Marl::AradLifPweToP2p;
using Hardware::Marl::Jericho2LifProfiles;
using Hardware::Marl::SemShadow;
using Hardware::MarlTunnel::MplsDecapConfig;
using Key = DecapProgrammer::Key;
using Info = DecapProgrammer::Info;
using Table = SemShadow::Table;

constexpr std::uint64_t kType = std::uint64_t{13} << 42;

Key key(std::uint32_t label, std::uint32_t tag = 0) {
  return Key(Netcore::MplsLabel(label), Bridging::VlanIdOrNone(tag), 0);
}

Info decap(Key const& k, std::uint32_t globalInLif,
           Jericho2LifProfiles profile = Jericho2LifProfiles::vplsSpokeInLifProfile_) {
  return Info(k).inLifProfileIs(profile).globalInLifIs(globalInLif).hwFecIdIs(0x41).vlanIdIs(10);
}

// One chip: the requests, the two shadows and the programmer over them.
struct Rig {
  explicit Rig(std::uint32_t capacity = AradIhpLifTable::kMaxLifIndex,
               Loom::Ptr<MplsDecapConfig> shared = MplsDecapConfig::MplsDecapConfigIs())
      : requests(std::move(shared)),
        programmer(std::make_unique<DecapProgrammer>(requests, sem, lif, capacity)) {}

  // The row of an installed request, 0 when it is not installed.
  std::uint32_t row(Key const& k) const {
    auto const* entry = programmer->installed().find(k);
    return entry ? entry->row.value() : 0;
  }
  std::vector<DecapProgrammer::Saved> saved() const {
    std::vector<DecapProgrammer::Saved> out;
    for (auto const& [k, entry] : programmer->installed()) {
      out.push_back({k, entry.row, entry.info});
    }
    return out;
  }
  // The shadows hold exactly the installed entries, each SEM payload pointing at its row.
  void expectShadowsMatch() const {
    std::size_t entries = 0;
    for (auto const& [k, entry] : programmer->installed()) {
      ++entries;
      auto const& table = sem->entries(entry.table);
      auto const it = table.find(entry.semKey);
      ASSERT_NE(it, table.end());
      EXPECT_EQ(it->second.fapMask, 1u);
      EXPECT_EQ(it->second.payload, std::uint64_t{entry.row.value()} << 4);
      EXPECT_TRUE(lif->lifEntry(entry.row.value()).isPseudowire());
    }
    EXPECT_EQ(sem->entries(Table::vplsDecap).size() + sem->entries(Table::mplsDecap).size(),
              entries);
    EXPECT_EQ(lif->lifEntries().size(), entries);
  }

  Loom::Ptr<MplsDecapConfig> requests;
  Loom::Ptr<SemShadow> sem = SemShadow::SemShadowIs();
  Loom::Ptr<AradIhpLifTable> lif = AradIhpLifTable::AradIhpLifTableIs();
  std::unique_ptr<DecapProgrammer> programmer;
};

TEST(DecapProgrammer, EncodesEachKindOfRequest) {
  struct Case {
    char const* name;
    Key key;
    Info info;
    std::optional<Table> table;
    std::uint64_t semKey;
    AradIhpLifEntry row;
  };
  auto const normalRow = [](std::uint8_t profile, std::uint32_t globalInLif) {
    return AradLifPweToP2p()
        .destinationIs(0x41)
        .vlanIs(10)
        .inLifProfileIs(profile)
        .globalInLifIs(globalInLif)
        .entry();
  };
  Case const cases[] = {
      {"spoke", key(3001, 110), decap(key(3001, 110), 0x801), Table::vplsDecap,
       kType | 110u << 22 | 0x801, normalRow(10, 0x801)},
      // The global in-LIF keeps its low 22 bits in the key and in the row.
      {"mesh 4, wide global in-LIF", key(3002, 4094),
       decap(key(3002, 4094), 0x400802, Jericho2LifProfiles::vplsMeshInLifProfile4_),
       Table::vplsDecap, kType | std::uint64_t{4094} << 22 | 0x802, normalRow(14, 0x802)},
      {"standby", key(5005), Info(key(5005)), Table::mplsDecap, kType | 5005u << 1,
       AradIhpLifEntry{AradIhpLifEntry::kTypePweToMp, {}}},
      {"VTT2",
       key(3003, 30),
       decap(key(3003, 30), 0x803, Jericho2LifProfiles::vplsVtt2InLifProfile_),
       std::nullopt,
       0,
       {}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    Rig chip;
    chip.requests->configIs(c.key, c.info);
    EXPECT_TRUE(chip.lif->lifEntries().empty()) << "nothing before the commit";
    chip.programmer->commit();
    EXPECT_FALSE(chip.programmer->waiting(c.key));
    if (!c.table) {
      EXPECT_EQ(chip.row(c.key), 0u);
      chip.expectShadowsMatch();
      continue;
    }
    ASSERT_EQ(chip.row(c.key), 1u);
    EXPECT_EQ(chip.sem->entries(*c.table).count(c.semKey), 1u);
    EXPECT_EQ(chip.lif->lifEntry(1), c.row);
    chip.expectShadowsMatch();
  }
}

TEST(DecapProgrammer, BatchesApplyTheirNetChange) {
  Rig chip;
  auto const a = key(100, 1), b = key(200, 2), c = key(300);
  chip.requests->configIs(a, decap(a, 0x11));
  chip.requests->configIs(b, decap(b, 0x22));
  chip.requests->configIs(c, Info(c));
  chip.programmer->commit();
  EXPECT_EQ(chip.programmer->takeChanged(), (std::vector<Key>{a, b, c}));
  EXPECT_EQ((std::vector{chip.row(a), chip.row(b), chip.row(c)}), (std::vector{1u, 2u, 3u}));

  // The start-up walk of a restarted agent: everything deleted and added again.
  chip.requests->configDelAll();
  chip.requests->configIs(c, Info(c));
  chip.requests->configIs(b, decap(b, 0x22));
  chip.requests->configIs(a, decap(a, 0x11));
  chip.programmer->commit();
  EXPECT_TRUE(chip.programmer->takeChanged().empty());
  EXPECT_EQ((std::vector{chip.row(a), chip.row(b), chip.row(c)}), (std::vector{1u, 2u, 3u}));

  // A new global in-LIF moves the SEM key; the row stays. A standby turning normal changes
  // table and row type in place.
  chip.requests->configIs(a, decap(a, 0x33));
  chip.requests->configIs(c, decap(c, 0x44));
  chip.programmer->commit();
  EXPECT_EQ(chip.programmer->takeChanged(), (std::vector<Key>{a, c}));
  EXPECT_EQ((std::vector{chip.row(a), chip.row(c)}), (std::vector{1u, 3u}));
  EXPECT_EQ(chip.sem->entries(Table::vplsDecap).count(kType | 1u << 22 | 0x11), 0u);
  EXPECT_EQ(chip.lif->lifEntry(3).type, AradIhpLifEntry::kTypePweToP2p);
  chip.expectShadowsMatch();

  // Turning into a VTT2 entry takes it out; the freed row is the lowest for the next one.
  chip.requests->configIs(a, decap(a, 0x33, Jericho2LifProfiles::vplsVtt2InLifProfile_));
  chip.programmer->commit();
  EXPECT_EQ(chip.row(a), 0u);
  EXPECT_FALSE(chip.programmer->waiting(a));
  auto const d = key(400, 4);
  chip.requests->configIs(d, decap(d, 0x55));
  chip.programmer->commit();
  EXPECT_EQ(chip.row(d), 1u);
  EXPECT_EQ(chip.programmer->takeChanged(), (std::vector<Key>{a, d}));
  chip.expectShadowsMatch();

  chip.programmer->removeAll();
  EXPECT_EQ(chip.lif->lifEntries().size(), 0u);
  chip.expectShadowsMatch();
  chip.programmer->commit();
  EXPECT_EQ(chip.programmer->installed().size(), 3u) << "a later commit installs them again";
}

TEST(DecapProgrammer, FullTableLeavesRequestsWaitingAndFreedRowsGoInKeyOrder) {
  Rig chip(2);
  auto const k = [](std::uint32_t n) { return key(n, n); };
  for (std::uint32_t n : {5, 4, 3, 2}) {
    chip.requests->configIs(k(n), decap(k(n), n));
  }
  chip.programmer->commit();
  EXPECT_EQ((std::vector{chip.row(k(2)), chip.row(k(3))}), (std::vector{1u, 2u}));
  EXPECT_TRUE(chip.programmer->waiting(k(4)) && chip.programmer->waiting(k(5)));
  EXPECT_EQ(chip.programmer->waitingCount(), 2u);

  // Arrival order does not count: a later, lower key is served first.
  chip.requests->configIs(k(1), decap(k(1), 1));
  chip.requests->configDel(k(3));
  chip.programmer->commit();
  EXPECT_EQ(chip.row(k(1)), 2u);
  EXPECT_FALSE(chip.programmer->waiting(k(3)));
  chip.requests->configDel(k(1));
  chip.requests->configDel(k(2));
  chip.programmer->commit();
  EXPECT_EQ((std::vector{chip.row(k(4)), chip.row(k(5))}), (std::vector{1u, 2u}));
  EXPECT_EQ(chip.programmer->waitingCount(), 0u);
  chip.expectShadowsMatch();

  // A request whose SEM key another entry holds waits for it, also with rows free.
  Rig sharing;
  auto const first = key(10, 7), second = key(20, 7);
  sharing.requests->configIs(first, decap(first, 0x99));
  sharing.requests->configIs(second, decap(second, 0x99));
  sharing.programmer->commit();
  EXPECT_TRUE(sharing.programmer->waiting(second));
  sharing.requests->configDel(first);
  sharing.programmer->commit();
  EXPECT_EQ(sharing.row(second), 1u);
  // An update onto a held SEM key takes the entry out until the key is free.
  auto const third = key(30, 7);
  sharing.requests->configIs(third, decap(third, 0x98));
  sharing.programmer->commit();
  sharing.requests->configIs(third, decap(third, 0x99));
  sharing.programmer->commit();
  EXPECT_TRUE(sharing.programmer->waiting(third));
  EXPECT_EQ(sharing.row(third), 0u);
  sharing.expectShadowsMatch();
}

TEST(DecapProgrammer, RestoreRebuildsTheRowsAndTheNextCommitAppliesTheDifference) {
  Rig before;
  std::vector<Key> keys;
  for (std::uint32_t n = 1; n <= 6; ++n) {
    keys.push_back(key(n, n));
    before.requests->configIs(keys.back(), decap(keys.back(), n));
  }
  before.programmer->commit();
  before.requests->configDel(keys[1]);
  before.requests->configDel(keys[3]);
  before.programmer->commit();  // rows 2 and 4 are free now

  Rig after(AradIhpLifTable::kMaxLifIndex, before.requests);
  EXPECT_TRUE(after.programmer->restore(before.saved()).empty());
  after.expectShadowsMatch();
  for (auto const& k : keys) {
    EXPECT_EQ(after.row(k), before.row(k));
    EXPECT_EQ(after.lif->lifEntry(after.row(k)), before.lif->lifEntry(before.row(k)));
  }
  after.programmer->commit();
  EXPECT_TRUE(after.programmer->takeChanged().empty());
  EXPECT_EQ(after.programmer->restore({}).size(), 1u) << "once, before the first commit";

  // Restored over changed requests: only the difference is applied.
  Rig changed(AradIhpLifTable::kMaxLifIndex, before.requests);
  before.requests->configDel(keys[0]);
  before.requests->configIs(keys[1], decap(keys[1], 2));
  changed.programmer->restore(before.saved());
  changed.programmer->commit();
  EXPECT_EQ(changed.programmer->takeChanged(), (std::vector<Key>{keys[0], keys[1]}));
  EXPECT_EQ(changed.row(keys[1]), 1u);
  EXPECT_EQ(changed.row(keys[2]), before.row(keys[2]));
  changed.expectShadowsMatch();
}

TEST(DecapProgrammer, RestoreLeavesOutBadEntriesAndReportsEach) {
  auto const a = key(1, 1), b = key(2, 2), c = key(3, 3);
  struct Case {
    char const* name;
    std::vector<DecapProgrammer::Saved> saved;
    std::size_t lines;
    std::map<Key, std::uint32_t> rows;  // what stays installed
  };
  Case const cases[] = {
      {"row 0 and a row above the capacity",
       {{a, InLifRow(0), decap(a, 1)},
        {b, InLifRow(9), decap(b, 2)},
        {c, InLifRow(8), decap(c, 3)}},
       2,
       {{c, 8}}},
      {"one row twice",
       {{a, InLifRow(3), decap(a, 1)},
        {b, InLifRow(3), decap(b, 2)},
        {c, InLifRow(4), decap(c, 3)}},
       2,
       {{c, 4}}},
      {"one SEM key twice",
       {{a, InLifRow(1), decap(a, 7)}, {key(9, 1), InLifRow(2), decap(key(9, 1), 7)}},
       2,
       {}},
      {"one key twice", {{a, InLifRow(1), decap(a, 1)}, {a, InLifRow(2), decap(a, 1)}}, 2, {}},
      {"VTT2", {{a, InLifRow(1), decap(a, 1, Jericho2LifProfiles::vplsVtt2InLifProfile_)}}, 1, {}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.name);
    Rig chip(8);
    EXPECT_EQ(chip.programmer->restore(c.saved).size(), c.lines);
    std::map<Key, std::uint32_t> rows;
    for (auto const& [k, entry] : chip.programmer->installed()) {
      rows[k] = entry.row.value();
    }
    EXPECT_EQ(rows, c.rows);
    chip.expectShadowsMatch();
  }
}

}  // namespace
}  // namespace Chip::test
