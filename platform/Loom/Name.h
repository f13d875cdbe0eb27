#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "Loom/String.h"

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
    return str() <=> other.str();
  }
  // The hash of the text, as String::hash gives it, computed once per distinct name.
  std::size_t hash(std::size_t seed = 0) const noexcept;

  // Distinct names alive: for tests and tools.
  static std::size_t interned();

  struct Text;

 private:
  void retain() const noexcept;
  void release() noexcept;

  Text* text_ = nullptr;
};

}  // namespace Loom
