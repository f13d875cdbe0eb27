#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>

namespace Loom {

// The members of a Loom collection or set: a balanced tree in ascending key order, where a
// member stays in place until it is removed. Three shortcuts keep large collections cheap to
// write:
//   - a member whose key is above every present key (keys written in order, as a start-up walk
//     or a bulk load does) goes in at the tree's end without a search;
//   - the member last added or overwritten is remembered, so that reading it back right after
//     the write (what the reactors of that write typically do) does not search the tree again;
//   - while a removal is being notified, its key is known to be absent without a search,
//     unless a member was added since.
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

  // Writes a set's member: adds it if absent, else only remembers it as the one last written.
  void put(Key const& key) {
    if (auto const it = find(key); it != tree_.end()) {
      written_ = it;
    } else {
      add(key);
    }
  }

  // Writes a map's member: adds it, or overwrites the value of the present one.
  template <class Value>
  void put(Key const& key, Value&& value) {
    if (auto const it = find(key); it != tree_.end()) {
      it->second = std::forward<Value>(value);
      written_ = it;
    } else {
      add(key, std::forward<Value>(value));
    }
  }

  // Takes a member out of the tree, then runs `notify()`; the member's storage, and so its key,
  // lives until `notify()` returns.
  template <class Notify>
  void remove(ConstIterator member, Notify&& notify) {
    if (member == ConstIterator(written_)) {
      written_ = tree_.end();
    }
    Key const& key = KeyOf()(*member);
    auto const node = tree_.extract(member);
    Removal const outer = removal_;
    removal_ = Removal{&key, adds_};
    notify();
    removal_ = outer;
  }

 private:
  // The key whose removal is being notified, and the adds counted when it was removed.
  struct Removal {
    Key const* key = nullptr;
    std::uint64_t adds = 0;
  };

  // Adds a member whose key is absent; a key above every present one goes in at the end.
  template <class... Value>
  void add(Key const& key, Value&&... value) {
    ++adds_;
    bool const last = tree_.empty() || tree_.key_comp()(KeyOf()(*std::prev(tree_.end())), key);
    written_ = last ? tree_.emplace_hint(tree_.end(), key, std::forward<Value>(value)...)
                    : tree_.emplace(key, std::forward<Value>(value)...).first;
  }

  bool same(Key const& a, Key const& b) const {
    auto const& less = tree_.key_comp();
    return !less(a, b) && !less(b, a);
  }

  template <class Self>
  static auto locate(Self& self, Key const& key) -> decltype(self.tree_.find(key)) {
    if (self.written_ != self.tree_.end() && self.same(KeyOf()(*self.written_), key)) {
      return self.written_;
    }
    auto const& removal = self.removal_;
    if (removal.key && removal.adds == self.adds_ && self.same(*removal.key, key)) {
      return self.tree_.end();
    }
    return self.tree_.find(key);
  }

  Tree tree_;
  Iterator written_ = tree_.end();
  Removal removal_;
  std::uint64_t adds_ = 0;
};

}  // namespace Loom
