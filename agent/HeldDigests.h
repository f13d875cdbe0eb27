#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "dblink/KeyLayout.h"

namespace VplsAgent {

// What the state database holds of the agent's output rows, as one 64-bit digest per key (of
// its fields and values, in the order the agent writes them), so that a row that the library
// took away and put back unchanged within a batch is not written again. A burst of input
// writes that change nothing (every one is a change the library applies) would otherwise have
// the agent write three times as many output rows as there were writes.
//
// Keys are held by a 64-bit hash of their text, in an open-addressing table of (key hash,
// digest) pairs: 16 bytes a slot, three quarters full at most, against about 100 bytes a key
// for a map of strings. Two keys or two rows whose hashes collide are taken as the same; with
// 64-bit hashes that is about one chance in 10^19 per comparison. A row taken as unchanged by
// such a chance would stay unwritten until the key changes again or the agent starts over.
//
// Invariants: a digest of 0 never stands for a row (a row's digest is never 0); a key absent
// from the table is absent from the database. Threading: the agent's scheduler thread.
class HeldDigests {
 public:
  HeldDigests();
  // Forgets every key, keeping room for `keys` of them.
  void clear(std::size_t keys = 0);
  // The database now holds `fields` (or, for null, nothing) under `key`.
  void hold(std::string_view key, DbLink::Fields const* fields);
  // Whether the database holds something else under `key` than `fields` (null: nothing); it
  // is then taken to hold `fields`.
  bool changes(std::string_view key, DbLink::Fields const* fields);
  std::size_t size() const noexcept { return used_; }

 private:
  struct Slot {
    std::uint64_t key = 0;  // 0: empty
    std::uint64_t digest = 0;
  };
  static std::uint64_t keyHash(std::string_view key);
  static std::uint64_t digest(DbLink::Fields const& fields);
  Slot* find(std::uint64_t key);
  void erase(Slot* slot);
  void grow();

  std::vector<Slot> slots_;
  std::size_t used_ = 0;
};

}  // namespace VplsAgent
