#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "Loom/String.h"
#include "Loom/Threading.h"

namespace Loom {

// An interned name: one shared, immutable text per distinct name, held by a counted handle of
// one pointer. Equal names share their text, so equality is a pointer comparison; order is
// still the order of the bytes (as Loom::String orders), decided without reading the text
// whenever the two are the same name. Keys of large collections that carry instance and group
// names (a few thousand distinct ones over hundreds of thousands of keys) use it to stay small
// and to compare and hash without reading strings.
//
// The empty name holds no text. A text lives while a handle refers to it, then leaves the pool.
// Handles are copied, compared and hashed without a lock; creating a handle from text and
// dropping a handle take the pool's lock only while the framework runs several threads.
class Name {
 public:
  Name() = default;
  explicit Name(String const& text);
  Name(Name const& other) noexcept : text_(other.text_) { retain(); }
  Name(Name&& other) noexcept : text_(other.text_) { other.text_ = nullptr; }
  Name& operator=(Name const& other) noexcept {
    Name copy(other);
    std::swap(text_, copy.text_);
    return *this;
  }
  Name& operator=(Name&& other) noexcept {
    std::swap(text_, other.text_);
    return *this;
  }
  ~Name() { release(); }

  String const& str() const noexcept;
  bool empty() const noexcept { return text_ == nullptr; }

  bool operator==(Name const& other) const noexcept { return text_ == other.text_; }
  std::strong_ordering operator<=>(Name const& other) const noexcept {
    if (text_ == other.text_) {
      return std::strong_ordering::equal;
    }
    // Most names differ within their first eight bytes: decided by one integer comparison.
    auto const prefix = text_ ? text_->prefix : 0;
    auto const otherPrefix = other.text_ ? other.text_->prefix : 0;
    if (prefix != otherPrefix) {
      return prefix <=> otherPrefix;
    }
    return str() <=> other.str();
  }
  // The hash of the text, as String::hash gives it, computed once per distinct name.
  std::size_t hash(std::size_t seed = 0) const noexcept;
  // A hash of the name's identity, without reading the text: for hash tables that live only in
  // this process, where equal names are the same name anyway.
  std::size_t identityHash() const noexcept { return reinterpret_cast<std::uintptr_t>(text_); }

  // Distinct names alive: for tests and tools.
  static std::size_t interned();

  // The shared text of one distinct name, owned by the pool; handles only point at it.
  struct Text {
    String text;
    std::size_t hash = 0;
    // The first eight bytes, zero-padded, as a big-endian number: two texts whose prefixes
    // differ are ordered as their prefixes are.
    std::uint64_t prefix = 0;
    // Handles referring to this text; changed under the pool's lock while several threads run.
    std::uint64_t handles = 0;
  };

 private:
  // Handles count with plain arithmetic while the framework runs one thread, which is the
  // common path and stays inline; several threads go through the pool's lock.
  void retain() const noexcept {
    if (text_) {
      if (Threading::multiThreaded()) {
        retainLocked();
      } else {
        ++handles();
      }
    }
  }
  void release() noexcept {
    if (text_) {
      if (Threading::multiThreaded() || handles() == 1) {
        releaseLocked();
      } else {
        --handles();
      }
      text_ = nullptr;
    }
  }
  std::uint64_t& handles() const noexcept { return text_->handles; }
  void retainLocked() const noexcept;
  void releaseLocked() noexcept;

  Text* text_ = nullptr;
};

}  // namespace Loom
