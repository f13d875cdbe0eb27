#include "agent/FoundRows.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>

namespace VplsAgent {
namespace {

constexpr std::size_t kChunk = std::size_t{1} << 20;
constexpr std::size_t kFirstSlots = 1024;
constexpr std::size_t kLength = sizeof(std::uint32_t);

void putLength(char*& at, std::size_t size) {
  auto const length = static_cast<std::uint32_t>(size);
  std::memcpy(at, &length, kLength);
  at += kLength;
}

std::string_view takeText(char const*& at) {
  std::uint32_t length = 0;
  std::memcpy(&length, at, kLength);
  at += kLength;
  std::string_view const text(at, length);
  at += length;
  return text;
}

}  // namespace

FoundRows::FoundRows() : slots_(kFirstSlots, 0) {}

char* FoundRows::reserve(std::size_t bytes) {
  if (chunks_.empty() || chunkUsed_ + bytes > chunkSize_) {
    chunkSize_ = std::max(kChunk, bytes);
    chunks_.push_back(std::make_unique<char[]>(chunkSize_));
    chunkUsed_ = 0;
  }
  char* const at = chunks_.back().get() + chunkUsed_;
  chunkUsed_ += bytes;
  return at;
}

void FoundRows::add(std::string_view key, std::vector<DbLink::RedisReply> const& flat) {
  auto const hash = hashOf(key);
  auto const slot = slotOf(key, hash);
  if (slots_[slot] != 0) {
    return;
  }
  std::size_t size = key.size();
  std::size_t const texts = flat.size() - flat.size() % 2;
  for (std::size_t i = 0; i < texts; ++i) {
    size += kLength + flat[i].text.size();
  }
  if (size > UINT32_MAX) {
    throw std::length_error("an output hash of over 4 GiB");
  }
  char* at = reserve(size);
  Row row;
  row.chunk = static_cast<std::uint32_t>(chunks_.size() - 1);
  row.offset = static_cast<std::uint32_t>(at - chunks_.back().get());
  row.keySize = static_cast<std::uint32_t>(key.size());
  row.size = static_cast<std::uint32_t>(size);
  std::memcpy(at, key.data(), key.size());
  at += key.size();
  for (std::size_t i = 0; i < texts; ++i) {
    putLength(at, flat[i].text.size());
    std::memcpy(at, flat[i].text.data(), flat[i].text.size());
    at += flat[i].text.size();
  }
  rows_.push_back(row);
  slots_[slot] = hash | rows_.size();
  if (rows_.size() * 2 > slots_.size()) {
    grow();
  }
}

std::string_view FoundRows::keyOf(Row const& row) const {
  return {chunks_[row.chunk].get() + row.offset, row.keySize};
}

void FoundRows::fieldsOf(Row const& row, DbLink::Fields& out) const {
  char const* at = chunks_[row.chunk].get() + row.offset + row.keySize;
  char const* const end = chunks_[row.chunk].get() + row.offset + row.size;
  std::size_t n = 0;
  for (; at < end; ++n) {
    auto const field = takeText(at);
    auto const value = takeText(at);
    if (n == out.size()) {
      out.emplace_back();
    }
    out[n].first.assign(field);
    out[n].second.assign(value);
  }
  out.resize(n);
}

bool FoundRows::sameInOrder(Row const& row, DbLink::Fields const& fields) const {
  char const* at = chunks_[row.chunk].get() + row.offset + row.keySize;
  char const* const end = chunks_[row.chunk].get() + row.offset + row.size;
  for (auto const& [field, value] : fields) {
    if (at == end || takeText(at) != field || takeText(at) != value) {
      return false;
    }
  }
  return at == end;
}

std::uint64_t FoundRows::hashOf(std::string_view key) {
  return std::hash<std::string_view>{}(key) & ~std::uint64_t{UINT32_MAX};
}

std::size_t FoundRows::slotOf(std::string_view key, std::uint64_t hash) const {
  std::size_t const mask = slots_.size() - 1;
  for (std::size_t slot = (hash >> 32) & mask;; slot = (slot + 1) & mask) {
    auto const held = slots_[slot];
    if (held == 0 || ((held & ~std::uint64_t{UINT32_MAX}) == hash &&
                      keyOf(rows_[(held & UINT32_MAX) - 1]) == key)) {
      return slot;
    }
  }
}

void FoundRows::grow() {
  std::vector<std::uint64_t> old(slots_.size() * 2, 0);
  old.swap(slots_);
  for (auto const held : old) {
    if (held != 0) {
      auto const hash = held & ~std::uint64_t{UINT32_MAX};
      std::size_t const mask = slots_.size() - 1;
      std::size_t slot = (hash >> 32) & mask;
      while (slots_[slot] != 0) {
        slot = (slot + 1) & mask;
      }
      slots_[slot] = held;
    }
  }
}

void FoundRows::forEachInKeyOrder(Visit const& visit,
                                  std::function<bool(std::string_view table)> const& wanted) const {
  if (keyOrder_.size() != rows_.size()) {
    // Sorted as (key, row) pairs: the keys at hand, not behind the row and its chunk.
    std::vector<std::pair<std::string_view, std::uint32_t>> keys;
    keys.reserve(rows_.size());
    for (std::uint32_t i = 0; i < rows_.size(); ++i) {
      keys.emplace_back(keyOf(rows_[i]), i);
    }
    std::sort(keys.begin(), keys.end());
    keyOrder_.clear();
    keyOrder_.reserve(keys.size());
    for (auto const& key : keys) {
      keyOrder_.push_back(key.second);
    }
  }
  DbLink::Fields fields;
  std::optional<std::string_view> table;
  bool tableWanted = false;
  for (auto const i : keyOrder_) {
    auto const key = keyOf(rows_[i]);
    auto const segment = key.substr(0, key.find('|'));
    if (segment != table) {
      table = segment;
      tableWanted = !wanted || wanted(segment);
    }
    if (tableWanted) {
      fieldsOf(rows_[i], fields);
      visit(key, fields);
    }
  }
}

FoundRows::Found FoundRows::take(std::string_view key, DbLink::Fields const& fields) {
  auto const held = slots_[slotOf(key, hashOf(key))] & UINT32_MAX;
  if (held == 0 || rows_[held - 1].taken) {
    return Found::absent;
  }
  auto& row = rows_[held - 1];
  row.taken = true;
  if (sameInOrder(row, fields)) {
    return Found::same;
  }
  DbLink::Fields found;
  fieldsOf(row, found);
  return DbLink::sameFields(found, fields) ? Found::same : Found::different;
}

void FoundRows::forEachLeft(std::function<void(std::string_view key)> const& visit) const {
  for (auto const& row : rows_) {
    if (!row.taken) {
      visit(keyOf(row));
    }
  }
}

}  // namespace VplsAgent
