#pragma once

#include <cstdint>
#include <iterator>
#include <optional>
#include <type_traits>

namespace Loom {

// Iterator over a Loom ordered collection (`Collection` or `Set`) that survives the removal of
// the member it stands on, and of any other member, during the iteration.
//
// It remembers the key of its member and the collection's removal count. Stepping on is a plain
// increment while nothing was removed since the last step, and otherwise a search for the first
// key above the remembered one. Members inserted during the iteration are visited when their
// key lies ahead. The element reference it yields is valid until that member is removed.
template <class Container, class Underlying, class Key, class Reference>
class SafeIterator {
 public:
  using iterator_category = std::forward_iterator_tag;
  using difference_type = std::ptrdiff_t;
  using value_type = std::remove_cvref_t<Reference>;
  using reference = Reference;

  SafeIterator() = default;
  SafeIterator(Container const* owner, Underlying it) : owner_(owner), it_(it) { remember(); }

  Reference operator*() const { return *it_; }
  auto operator->() const { return &*it_; }

  SafeIterator& operator++() {
    if (owner_->removals() != removals_) {
      it_ = owner_->underlying().upper_bound(*key_);
    } else {
      ++it_;
    }
    remember();
    return *this;
  }
  SafeIterator operator++(int) {
    auto copy = *this;
    ++*this;
    return copy;
  }

  // Only the end position compares equal across removals; that is all a range-for needs.
  bool operator==(SafeIterator const& other) const {
    bool const atEnd = isEnd();
    bool const otherAtEnd = other.isEnd();
    if (atEnd || otherAtEnd) {
      return atEnd == otherAtEnd;
    }
    return it_ == other.it_;
  }

 private:
  bool isEnd() const { return !owner_ || it_ == owner_->underlying().end(); }

  void remember() {
    removals_ = owner_->removals();
    if (it_ != owner_->underlying().end()) {
      key_.emplace(Container::keyOf(*it_));
    }
  }

  Container const* owner_ = nullptr;
  Underlying it_{};
  std::optional<Key> key_;
  std::uint64_t removals_ = 0;
};

}  // namespace Loom
