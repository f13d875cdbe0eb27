#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/TypeData.h"

namespace Hardware::Marl {

// One row of the ingress LIF table: an entry type and two 64-bit data words (the first the
// destination word, the second the attribute word). Rows of unused LIF indexes have type 0.
struct AradIhpLifEntry {
  // Entry types of pseudowire in-LIFs.
  static constexpr std::uint8_t kTypePweToP2p = 22;
  static constexpr std::uint8_t kTypePweToMp = 24;

  std::uint8_t type = 0;
  std::array<std::uint64_t, 2> data{};

  bool isPseudowire() const noexcept { return type == kTypePweToP2p || type == kTypePweToMp; }
  bool operator==(AradIhpLifEntry const&) const = default;
};

// The fields of a pseudowire in-LIF entry, by their bit positions in the two data words:
//   destination word: destination (FEC) in bits 0-20;
//   attribute word:   termination profile 4-6, VLAN 7-23, in-LIF profile 33-40,
//                     global in-LIF 41-62.
class AradLifPweToP2p {
 public:
  AradLifPweToP2p() = default;
  explicit AradLifPweToP2p(AradIhpLifEntry const& entry) : words_(entry.data) {}

  std::uint32_t destination() const noexcept { return field(0, 0, 21); }
  std::uint8_t terminationProfile() const noexcept {
    return static_cast<std::uint8_t>(field(1, 4, 3));
  }
  std::uint32_t vlan() const noexcept { return field(1, 7, 17); }
  std::uint8_t inLifProfile() const noexcept { return static_cast<std::uint8_t>(field(1, 33, 8)); }
  std::uint32_t globalInLif() const noexcept { return field(1, 41, 22); }

  AradLifPweToP2p& destinationIs(std::uint32_t v) { return fieldIs(0, 0, 21, v); }
  AradLifPweToP2p& terminationProfileIs(std::uint8_t v) { return fieldIs(1, 4, 3, v); }
  AradLifPweToP2p& vlanIs(std::uint32_t v) { return fieldIs(1, 7, 17, v); }
  AradLifPweToP2p& inLifProfileIs(std::uint8_t v) { return fieldIs(1, 33, 8, v); }
  AradLifPweToP2p& globalInLifIs(std::uint32_t v) { return fieldIs(1, 41, 22, v); }

  // A pseudowire entry of the given type carrying these fields.
  AradIhpLifEntry entry(std::uint8_t type = AradIhpLifEntry::kTypePweToP2p) const {
    return AradIhpLifEntry{type, words_};
  }

 private:
  std::uint32_t field(int word, unsigned shift, unsigned width) const noexcept {
    return static_cast<std::uint32_t>((words_[word] >> shift) & ((std::uint64_t{1} << width) - 1));
  }
  AradLifPweToP2p& fieldIs(int word, unsigned shift, unsigned width, std::uint64_t v) {
    auto const mask = ((std::uint64_t{1} << width) - 1) << shift;
    words_[word] = (words_[word] & ~mask) | ((v << shift) & mask);
    return *this;
  }

  std::array<std::uint64_t, 2> words_{};
};

// Software copy of the chip's ingress LIF table, indexed by local LIF index (17 bits). Written
// by the agents that program the chip; read by the show command. Runs on the agent's
// scheduler thread; takes no locks.
class AradIhpLifTable : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Hardware::Marl::AradIhpLifTable";
  static constexpr std::uint32_t kMaxLifIndex = 0x1ffff;

  static Loom::Ptr<AradIhpLifTable> AradIhpLifTableIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }

  // The row of a LIF index; an empty row (type 0) when nothing is programmed there.
  AradIhpLifEntry lifEntry(std::uint32_t lifIndex) const;
  void lifEntryIs(std::uint32_t lifIndex, AradIhpLifEntry const& entry);
  void lifEntryDel(std::uint32_t lifIndex);
  auto const& lifEntries() const noexcept { return rows_; }

 private:
  Loom::Collection<std::uint32_t, AradIhpLifEntry> rows_;
};

}  // namespace Hardware::Marl
