#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "dblink/KeyLayout.h"
#include "dblink/RedisReply.h"

namespace VplsAgent {

// The hashes of keys that a start read from the state database, by key: the inputs, until they
// are applied, and the outputs, until they are loaded and compared with memory's rows. A
// chip-scale database holds about 900000 of them:
// kept as a map of strings to vectors of string pairs they cost four to five times their bytes
// in allocations, which a start's peak memory cannot afford beside the state it builds. So each
// row is one run of bytes in an arena of large chunks (its key, then each field and value with
// its length before it), and the index is an open-addressing table of row numbers.
//
// Invariants: a key is held once (adding it again changes nothing); row numbers and the bytes
// of a row never move once added; a row taken stays in the arena but is found no more.
// Threading: one thread.
class FoundRows {
 public:
  using Visit = std::function<void(std::string_view key, DbLink::Fields const& fields)>;

  FoundRows();

  // Adds a key's hash from HGETALL's answer (field, value, field, value, ...).
  void add(std::string_view key, std::vector<DbLink::RedisReply> const& flat);
  // Rows held (taken ones included).
  std::size_t size() const noexcept { return rows_.size(); }

  // Every row of the tables (a key's first segment) that `wanted` accepts, every row without
  // it, in key order (sorted once, at the first call; no add() after it). `wanted` is asked
  // once per table.
  void forEachInKeyOrder(Visit const& visit,
                         std::function<bool(std::string_view table)> const& wanted = {}) const;

  // What take() found for a key of memory's.
  enum class Found : std::uint8_t { absent, same, different };
  // Looks `key` up and takes it out of what is left: absent when it was not found (or was
  // taken before), else whether its fields are `fields` (in any order).
  Found take(std::string_view key, DbLink::Fields const& fields);
  // The keys of the rows not taken.
  void forEachLeft(std::function<void(std::string_view key)> const& visit) const;

 private:
  struct Row {
    std::uint32_t chunk = 0;
    std::uint32_t offset = 0;
    std::uint32_t keySize = 0;
    std::uint32_t size = 0;  // key and fields
    bool taken = false;
  };
  std::string_view keyOf(Row const& row) const;
  // The fields of a row, decoded into `out` (its strings' storage reused).
  void fieldsOf(Row const& row, DbLink::Fields& out) const;
  // Whether the row's fields are `fields` in the same order, without decoding them.
  bool sameInOrder(Row const& row, DbLink::Fields const& fields) const;
  char* reserve(std::size_t bytes);
  // The slot of `key` (of hash `hash`): where its row number is, or the empty slot where it
  // would go.
  std::size_t slotOf(std::string_view key, std::uint64_t hash) const;
  void grow();

  // Arena chunks; the last one is being filled.
  std::vector<std::unique_ptr<char[]>> chunks_;
  std::size_t chunkUsed_ = 0;
  std::size_t chunkSize_ = 0;
  std::vector<Row> rows_;
  // Row numbers in key order, once asked for.
  mutable std::vector<std::uint32_t> keyOrder_;
  // Per slot, 0 when empty, else the key's hash in the upper half (its lower half cleared) and
  // its row number + 1 in the lower half, so that a probe rarely reads a key; the size a power
  // of two, at most half full.
  std::vector<std::uint64_t> slots_;
  static std::uint64_t hashOf(std::string_view key);
};

}  // namespace VplsAgent
