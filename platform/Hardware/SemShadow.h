#pragma once

#include <cstdint>
#include <map>
#include <string_view>

#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/TypeData.h"

namespace Hardware::Marl {

// Software copy of the chip's exact-match (SEM) tables, kept by the agents that program them.
// Two tables matter to VPLS decapsulation: the VPLS decap table, keyed by the normalised tag
// and the global in-LIF, and the MPLS decap table, keyed by the label. A key is 64 bits with
// the entry's type in bits 42 and up. An entry is installed on a set of forwarding processors
// (FAPs, a mask of up to 64) with a payload per FAP; a payload of 0 is the empty payload.
//
// Written by the agents that program the chip; read by the show command. Runs on the agent's
// scheduler thread; takes no locks.
class SemShadow : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Hardware::Marl::SemShadow";

  enum class Table { vplsDecap, mplsDecap };
  using FapMask = std::uint64_t;
  using Payload = std::uint64_t;
  static constexpr Payload kEmptyPayload = 0;
  static constexpr unsigned kTypeShift = 42;

  // The agents install an entry with one payload on every FAP of its mask, so the payload of
  // each FAP is kept once for all of them.
  struct Entry {
    FapMask fapMask = 0;
    Payload payload = kEmptyPayload;
  };

  static Loom::Ptr<SemShadow> SemShadowIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }

  // Installs (or overwrites) an entry with the same payload on every FAP of the mask.
  void entryIs(Table table, std::uint64_t key, FapMask fapMask, Payload payload);
  void entryDel(Table table, std::uint64_t key);
  std::map<std::uint64_t, Entry> const& entries(Table table) const;

  // The first FAP set in a mask; 64 for an empty mask.
  static unsigned firstFap(FapMask mask) noexcept;
  static unsigned keyType(std::uint64_t key) noexcept {
    return static_cast<unsigned>(key >> kTypeShift);
  }

 private:
  std::map<std::uint64_t, Entry> vplsDecap_;
  std::map<std::uint64_t, Entry> mplsDecap_;
};

// Iterates the entries of one exact-match table, yielding each key and its FAP mask.
class SemExactMatchIterator {
 public:
  SemExactMatchIterator(SemShadow const& shadow, SemShadow::Table table);
  bool done() const noexcept { return it_ == end_; }
  void next() { ++it_; }
  std::uint64_t key() const { return it_->first; }
  SemShadow::FapMask fapMask() const { return it_->second.fapMask; }

 private:
  std::map<std::uint64_t, SemShadow::Entry>::const_iterator it_;
  std::map<std::uint64_t, SemShadow::Entry>::const_iterator end_;
};

// Reads payloads of one exact-match table, the way the chip is asked: per FAP and key.
class SemTableReader {
 public:
  SemTableReader(Loom::Ptr<SemShadow const> shadow, SemShadow::Table table)
      : shadow_(std::move(shadow)), table_(table) {}
  // The payload of `key` on FAP `fap`; the empty payload when the entry is absent there.
  SemShadow::Payload payload(unsigned fap, std::uint64_t key) const;

 private:
  Loom::Ptr<SemShadow const> shadow_;
  SemShadow::Table table_;
};

}  // namespace Hardware::Marl
