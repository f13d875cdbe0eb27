#pragma once

#include <cstdint>
#include <iterator>
#include <optional>
#include <type_traits>

namespace Loom {

// Iterator over a Loom ordered collection (`Collection` or `Set`) that survives the removal of
// the member it stands on, and of any other member, during the iteration.
//
// It remembers the key of its member and the tree's count of insertions and removals. Stepping
// on is a plain step while the tree did not change since the last one, and otherwise a search
// for the first key above the remembered one: members move in the tree when others come or go.
// Members inserted during the iteration are visited when their key lies ahead. The element
// reference it yields is valid until the collection next adds or removes a member.
template <class Tree, class KeyOf>
class SafeIterator {
  using Position = typename Tree::const_iterator;
  using Key = typename Tree::Key;

 public:
  using iterator_category = std::forward_iterator_tag;
  using difference_type = std::ptrdiff_t;
  using value_type = typename Position::value_type;
  using reference = value_type const&;

  SafeIterator() = default;
  SafeIterator(Tree const* tree, Position at) : tree_(tree), at_(at) { remember(); }

  reference operator*() const { return *at_; }
  auto operator->() const { return &*at_; }

  SafeIterator& operator++() {
    if (tree_->changes() != changes_) {
      at_ = tree_->upperBound(*key_);
    } else {
      ++at_;
    }
    remember();
    return *this;
  }
  SafeIterator operator++(int) {
    auto copy = *this;
    ++*this;
    return copy;
  }

  // Only the end position compares equal across changes; that is all a range-for needs.
  bool operator==(SafeIterator const& other) const {
    bool const atEnd = isEnd();
    bool const otherAtEnd = other.isEnd();
    if (atEnd || otherAtEnd) {
      return atEnd == otherAtEnd;
    }
    return at_ == other.at_;
  }

 private:
  bool isEnd() const { return !tree_ || at_ == tree_->end(); }

  void remember() {
    changes_ = tree_->changes();
    if (at_ != tree_->end()) {
      key_.emplace(KeyOf()(*at_));
    }
  }

  Tree const* tree_ = nullptr;
  Position at_{};
  std::optional<Key> key_;
  std::uint64_t changes_ = 0;
};

}  // namespace Loom
