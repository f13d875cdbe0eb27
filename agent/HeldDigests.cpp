#include "agent/HeldDigests.h"

#include <bit>
#include <functional>

namespace VplsAgent {
namespace {

constexpr std::size_t kFirstSlots = 1024;

std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
  // The combination step of a 64-bit hash combine (a multiply and rotations spread each
  // input bit over the result).
  a ^= b + 0x9e3779b97f4a7c15ULL + (a << 6) + (a >> 2);
  return std::rotl(a * 0xff51afd7ed558ccdULL, 29);
}

}  // namespace

HeldDigests::HeldDigests() : slots_(kFirstSlots) {}

std::uint64_t HeldDigests::keyHash(std::string_view key) {
  auto const hash = std::hash<std::string_view>{}(key);
  return hash == 0 ? 1 : hash;
}

std::uint64_t HeldDigests::digest(DbLink::Fields const& fields) {
  std::uint64_t d = fields.size();
  for (auto const& [field, value] : fields) {
    d = mix(d, std::hash<std::string_view>{}(field));
    d = mix(d, std::hash<std::string_view>{}(value));
  }
  return d == 0 ? 1 : d;
}

void HeldDigests::clear(std::size_t keys) {
  std::size_t size = kFirstSlots;
  while (size * 3 < keys * 4) {
    size *= 2;
  }
  slots_.assign(size, Slot{});
  used_ = 0;
}

HeldDigests::Slot* HeldDigests::find(std::uint64_t key) {
  std::size_t const mask = slots_.size() - 1;
  for (std::size_t i = key & mask;; i = (i + 1) & mask) {
    if (slots_[i].key == key || slots_[i].key == 0) {
      return &slots_[i];
    }
  }
}

void HeldDigests::erase(Slot* slot) {
  // Backward shift: the slots after it that probed past it move up, so that no probe stops
  // early at the hole.
  std::size_t const mask = slots_.size() - 1;
  auto hole = static_cast<std::size_t>(slot - slots_.data());
  for (std::size_t i = (hole + 1) & mask; slots_[i].key != 0; i = (i + 1) & mask) {
    std::size_t const home = slots_[i].key & mask;
    // Movable when its home is not within (hole, i], cyclically.
    bool const between = hole <= i ? (home > hole && home <= i) : (home > hole || home <= i);
    if (!between) {
      slots_[hole] = slots_[i];
      hole = i;
    }
  }
  slots_[hole] = Slot{};
  --used_;
}

void HeldDigests::grow() {
  std::vector<Slot> old(slots_.size() * 2);
  old.swap(slots_);
  for (auto const& slot : old) {
    if (slot.key != 0) {
      *find(slot.key) = slot;
    }
  }
}

void HeldDigests::hold(std::string_view key, DbLink::Fields const* fields) {
  changes(key, fields);
}

bool HeldDigests::changes(std::string_view key, DbLink::Fields const* fields) {
  auto const hash = keyHash(key);
  Slot* slot = find(hash);
  if (fields == nullptr) {
    if (slot->key == 0) {
      return false;
    }
    erase(slot);
    return true;
  }
  auto const now = digest(*fields);
  if (slot->key != 0) {
    bool const changed = slot->digest != now;
    slot->digest = now;
    return changed;
  }
  *slot = Slot{hash, now};
  if (++used_ * 4 > slots_.size() * 3) {
    grow();
  }
  return true;
}

}  // namespace VplsAgent
