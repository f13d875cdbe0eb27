#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

#include "Loom/BTree.h"

namespace Loom {

// The members of a Loom collection or set: a B-tree in ascending key order (see BTree), which
// writes a key above every present one at its end without a search, and answers a read, write
// or removal of the key it last searched or wrote without a second one. While a removal is being
// notified, its key is known to be absent without a search, unless the tree changed since.
// `Member` is a key-value pair or a key; `KeyOf` gives a member's key. Not thread-safe for
// writes.
template <class Member, class KeyOf>
class MemberTree {
 public:
  using Tree = BTree<Member, KeyOf, std::less<>>;
  using Key = typename Tree::Key;

  MemberTree() = default;
  MemberTree(MemberTree const&) = delete;
  MemberTree& operator=(MemberTree const&) = delete;

  Tree const& tree() const noexcept { return tree_; }
  std::size_t size() const noexcept { return tree_.size(); }
  bool empty() const noexcept { return tree_.empty(); }

  Member const* find(Key const& key) const {
    if (knownAbsent(key)) {
      return nullptr;
    }
    auto const at = tree_.find(key);
    return at == tree_.end() ? nullptr : &*at;
  }
  // The tree hands out only const members; this one's owner may write its value.
  Member* findMutable(Key const& key) {
    return const_cast<Member*>(std::as_const(*this).find(key));
  }
  bool has(Key const& key) const { return find(key) != nullptr; }

  // Writes a set's member: adds it if absent.
  void put(Key const& key) { tree_.findOrInsert(key, key); }

  // Writes a map's member: adds it, or overwrites the value of the present one.
  template <class Value>
  void put(Key const& key, Value&& value) {
    // `value` is used only when the member is added, so it is still there to assign if not.
    auto const [member, added] = tree_.findOrInsert(key, key, std::forward<Value>(value));
    if (!added) {
      member->second = std::forward<Value>(value);
    }
  }

  // Takes the member with `key` out of the tree, then runs `notify(key)` with the key of the
  // member taken out, which lives until `notify` returns. False when the key is absent.
  template <class Notify>
  bool remove(Key const& key, Notify&& notify) {
    if (knownAbsent(key)) {
      return false;
    }
    auto const taken = tree_.take(key);
    if (!taken) {
      return false;
    }
    Key const& takenKey = KeyOf()(*taken);
    Removal const outer = removal_;
    removal_ = Removal{&takenKey, tree_.changes()};
    notify(takenKey);
    removal_ = outer;
    return true;
  }

 private:
  // The key whose removal is being notified, and the tree's changes right after it.
  struct Removal {
    Key const* key = nullptr;
    std::uint64_t changes = 0;
  };

  bool knownAbsent(Key const& key) const {
    auto const same = [](Key const& a, Key const& b) {
      return !std::less<>()(a, b) && !std::less<>()(b, a);
    };
    return removal_.key && removal_.changes == tree_.changes() && same(*removal_.key, key);
  }

  Tree tree_;
  Removal removal_;
};

}  // namespace Loom
