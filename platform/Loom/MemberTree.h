#pragma once

#include <cstddef>
#include <iterator>
#include <utility>

namespace Loom {

// The members of a Loom collection or set: a balanced tree in ascending key order, where a
// member stays in place until it is removed. Two shortcuts keep large collections cheap to
// write:
//   - a member whose key is above every present key (keys written in order, as a start-up walk
//     or a bulk load does) goes in at the tree's end without a search;
//   - the member last added or overwritten is remembered, so that reading it back right after
//     the write (what the reactors of that write typically do) does not search the tree again.
// Reads never change anything, so concurrent readers stay as safe as with the bare tree.
// `Tree` is a std::map or std::set; `KeyOf` gives a member's key. Not thread-safe for writes.
template <class Tree, class KeyOf>
class MemberTree {
 public:
  using Key = typename Tree::key_type;
  using Iterator = typename Tree::iterator;
  using ConstIterator = typename Tree::const_iterator;

  MemberTree() = default;
  MemberTree(MemberTree const&) = delete;
  MemberTree& operator=(MemberTree const&) = delete;

  Tree const& tree() const noexcept { return tree_; }
  std::size_t size() const noexcept { return tree_.size(); }
  bool empty() const noexcept { return tree_.empty(); }

  ConstIterator find(Key const& key) const { return locate(*this, key); }
  Iterator find(Key const& key) { return locate(*this, key); }
  bool has(Key const& key) const { return find(key) != tree_.end(); }

  // Adds a member whose key is absent; `value` is what the tree's emplace takes after the key.
  template <class... Value>
  Iterator add(Key const& key, Value&&... value) {
    bool const last = tree_.empty() || tree_.key_comp()(KeyOf()(*std::prev(tree_.end())), key);
    written_ = last ? tree_.emplace_hint(tree_.end(), key, std::forward<Value>(value)...)
                    : tree_.emplace(key, std::forward<Value>(value)...).first;
    return written_;
  }

  // Records that a present member was overwritten.
  void wrote(Iterator member) noexcept { written_ = member; }

  // Takes a member out of the tree; its storage lives as long as the returned node.
  typename Tree::node_type extract(ConstIterator member) {
    if (member == ConstIterator(written_)) {
      written_ = tree_.end();
    }
    return tree_.extract(member);
  }

 private:
  template <class Self>
  static auto locate(Self& self, Key const& key) -> decltype(self.tree_.find(key)) {
    auto const& less = self.tree_.key_comp();
    if (self.written_ != self.tree_.end()) {
      auto const& written = KeyOf()(*self.written_);
      if (!less(written, key) && !less(key, written)) {
        return self.written_;
      }
    }
    return self.tree_.find(key);
  }

  Tree tree_;
  Iterator written_ = tree_.end();
};

}  // namespace Loom
