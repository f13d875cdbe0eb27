#include "chip/DecapProgrammer.h"

#include <algorithm>
#include <cstdio>
#include <unordered_map>
#include <utility>

#include "Loom/Assert.h"

namespace Chip {

namespace {

using Hardware::Marl::AradIhpLifEntry;
using Hardware::Marl::AradLifPweToP2p;
using Hardware::Marl::Jericho2LifProfiles;
using Hardware::Marl::SemShadow;

constexpr char const* kUnit = "chip/DecapProgrammer";

void sortUnique(std::vector<DecapProgrammer::Key>& keys) {
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
}

std::string leftOut(DecapProgrammer::Saved const& entry, std::string const& why) {
  return "saved decap entry (label " + std::to_string(entry.key.label().value()) + ", tag " +
         std::to_string(entry.key.innerDot1QTag().value()) + ", " +
         std::to_string(entry.key.keyField3()) + ") at row " + std::to_string(entry.row.value()) +
         " left out: " + why;
}

std::string hex(std::uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

}  // namespace

DecapProgrammer::DecapProgrammer(Loom::Ptr<Hardware::MarlTunnel::MplsDecapConfig const> requests,
                                 Loom::Ptr<SemShadow> sem,
                                 Loom::Ptr<Hardware::Marl::AradIhpLifTable> lif,
                                 std::uint32_t capacity)
    : requests_(std::move(requests)),
      sem_(std::move(sem)),
      lif_(std::move(lif)),
      rows_(std::min(capacity, Hardware::Marl::AradIhpLifTable::kMaxLifIndex)) {
  noteAllRequests();
  requests_->publisher().subscribe(reactor_);
}

DecapProgrammer::~DecapProgrammer() {
  requests_->publisher().unsubscribe(reactor_);
}

void DecapProgrammer::Reactor::onConfig(Key const& key) {
  programmer_.noted_.push_back(key);
}

void DecapProgrammer::noteAllRequests() {
  noted_.reserve(noted_.size() + requests_->config().size());
  for (auto const& [key, info] : requests_->config()) {
    noted_.push_back(key);
  }
}

std::optional<DecapProgrammer::Placement> DecapProgrammer::placement(Key const& key,
                                                                     Info const& info) {
  auto const profile = info.inLifProfile();
  auto const typeBits = kDecapKeyType << SemShadow::kTypeShift;
  if (profile == Jericho2LifProfiles::noLifProfile_) {
    return Placement{SemTable::mplsDecap, typeBits | std::uint64_t{key.label().value()} << 1,
                     AradLifPweToP2p().entry(AradIhpLifEntry::kTypePweToMp)};
  }
  if (profile < Jericho2LifProfiles::vplsSpokeInLifProfile_ ||
      profile > Jericho2LifProfiles::vplsMeshInLifProfile4_) {
    return std::nullopt;
  }
  return Placement{
      SemTable::vplsDecap,
      typeBits | std::uint64_t{key.innerDot1QTag().value()} << 22 | (info.globalInLif() & 0x3fffff),
      AradLifPweToP2p()
          .destinationIs(static_cast<std::uint32_t>(info.hwFecId()))
          .vlanIs(info.vlanId())
          .inLifProfileIs(static_cast<std::uint8_t>(Hardware::Marl::toValue(profile)))
          .globalInLifIs(info.globalInLif())
          .entry()};
}

std::uint64_t DecapProgrammer::semSlot(SemTable table, std::uint64_t semKey) noexcept {
  // SEM keys end at bit 45 (the type in bits 42 and up); bit 63 tells the tables apart.
  return semKey | (table == SemTable::mplsDecap ? std::uint64_t{1} << 63 : 0);
}

void DecapProgrammer::commit() {
  committed_ = true;
  sortUnique(noted_);
  // Removals first, so that the SEM keys they free are there for the updates.
  std::vector<Key> updates;
  for (auto const& key : noted_) {
    auto const* request = requests_->config().find(key);
    auto const where = request ? placement(key, *request) : std::nullopt;
    if (auto const* was = installed_.find(key)) {
      if (!where) {
        uninstall(key, *was);
      } else if (was->info != *request) {
        updates.push_back(key);
      }
    } else if (where) {
      waiting_.insert(key);
    } else {
      waiting_.erase(key);
    }
  }
  noted_.clear();
  for (auto const& key : updates) {
    update(key, *installed_.findMutable(key), *requests_->config().find(key));
  }

  for (auto it = waiting_.begin(); it != waiting_.end() && rows_.freeCount() > 0; ++it) {
    Key const key = *it;
    auto const* request = requests_->config().find(key);
    auto const where = request ? placement(key, *request) : std::nullopt;
    LOOM_ASSERT(where, kUnit, "void Chip::DecapProgrammer::commit()");
    if (install(key, *request, *where)) {
      waiting_.erase(key);
    }
  }
}

bool DecapProgrammer::install(Key const& key, Info const& info, Placement const& where) {
  if (!heldSemKeys_.insert(semSlot(where.table, where.semKey)).second) {
    return false;
  }
  auto const row = *rows_.take();
  write(row, where);
  installed_.set(key, Installed{where.table, where.semKey, row, info});
  changed_.push_back(key);
  return true;
}

void DecapProgrammer::update(Key const& key, Installed& entry, Info const& info) {
  auto const where = *placement(key, info);
  auto const oldSlot = semSlot(entry.table, entry.semKey);
  auto const newSlot = semSlot(where.table, where.semKey);
  if (newSlot != oldSlot) {
    if (heldSemKeys_.contains(newSlot)) {
      waiting_.insert(key);
      uninstall(key, entry);
      return;
    }
    sem_->entryDel(entry.table, entry.semKey);
    heldSemKeys_.erase(oldSlot);
    heldSemKeys_.insert(newSlot);
  }
  write(entry.row, where);
  entry = Installed{where.table, where.semKey, entry.row, info};
  changed_.push_back(key);
}

void DecapProgrammer::uninstall(Key const& key, Installed const& entry) {
  sem_->entryDel(entry.table, entry.semKey);
  lif_->lifEntryDel(entry.row.value());
  rows_.give(entry.row);
  heldSemKeys_.erase(semSlot(entry.table, entry.semKey));
  changed_.push_back(key);
  installed_.erase(key);  // last: `entry` lives in the collection
}

void DecapProgrammer::write(InLifRow row, Placement const& where) {
  lif_->lifEntryIs(row.value(), where.rowEntry);
  sem_->entryIs(where.table, where.semKey, kFapMask, std::uint64_t{row.value()} << 4);
}

void DecapProgrammer::removeAll() {
  for (auto const& [key, entry] : installed_) {
    sem_->entryDel(entry.table, entry.semKey);
    lif_->lifEntryDel(entry.row.value());
    changed_.push_back(key);
  }
  installed_.clear();
  heldSemKeys_.clear();
  rows_.reset();
  waiting_.clear();
  noted_.clear();
  noteAllRequests();
}

std::vector<DecapProgrammer::Key> DecapProgrammer::takeChanged() {
  sortUnique(changed_);
  return std::exchange(changed_, {});
}

std::vector<std::string> DecapProgrammer::restore(std::vector<Saved> saved) {
  if (committed_ || !installed_.empty()) {
    return {"restore refused: the decap tables were programmed already"};
  }
  std::stable_sort(saved.begin(), saved.end(),
                   [](Saved const& a, Saved const& b) { return a.key < b.key; });
  auto const n = saved.size();
  std::vector<std::optional<Placement>> where(n);
  std::vector<std::string> why(n);
  for (std::size_t i = 0; i < n; ++i) {
    auto const& entry = saved[i];
    if ((i > 0 && saved[i - 1].key == entry.key) || (i + 1 < n && saved[i + 1].key == entry.key)) {
      why[i] = "its key is saved more than once";
    } else if (!rows_.inRange(entry.row)) {
      why[i] = "the row is outside 1 to " + std::to_string(rows_.capacity());
    } else if (!(where[i] = placement(entry.key, entry.info))) {
      why[i] = "in-LIF profile " +
               std::to_string(Hardware::Marl::toValue(entry.info.inLifProfile())) +
               " is not a decap profile";
    }
  }
  // What two entries claim, neither gets.
  std::vector<std::uint8_t> rowClaims(std::size_t{rows_.capacity()} + 1);
  std::unordered_map<std::uint64_t, std::uint8_t> semKeyClaims;
  semKeyClaims.reserve(n);
  auto const claim = [](std::uint8_t& claims) {
    claims = claims < 2 ? std::uint8_t(claims + 1) : std::uint8_t{2};
  };
  for (std::size_t i = 0; i < n; ++i) {
    if (why[i].empty()) {
      claim(rowClaims[saved[i].row.value()]);
      claim(semKeyClaims[semSlot(where[i]->table, where[i]->semKey)]);
    }
  }
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < n; ++i) {
    auto const& entry = saved[i];
    if (why[i].empty() && rowClaims[entry.row.value()] > 1) {
      why[i] = "its row is saved for another entry too";
    } else if (why[i].empty() && semKeyClaims[semSlot(where[i]->table, where[i]->semKey)] > 1) {
      why[i] = "its SEM key " + hex(where[i]->semKey) + " is saved for another entry too";
    }
    noted_.push_back(entry.key);
    if (!why[i].empty()) {
      lines.push_back(leftOut(entry, why[i]));
      continue;
    }
    rows_.claim(entry.row);
    write(entry.row, *where[i]);
    heldSemKeys_.insert(semSlot(where[i]->table, where[i]->semKey));
    installed_.set(entry.key, Installed{where[i]->table, where[i]->semKey, entry.row, entry.info});
  }
  return lines;
}

}  // namespace Chip
