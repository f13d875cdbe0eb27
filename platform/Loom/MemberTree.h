#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

#include "Loom/BTree.h"

namespace Loom {

// The members of a Loom collection or set: a B-tree in ascending key order (see BTree). Three
// shortcuts keep large collections cheap to write:
//   - a member whose key is above every present key (keys written in order, as a start-up walk
//     or a bulk load does) goes in at the tree's end without a search;
//   - the member last added or overwritten is remembered, so that reading it back right after
//     the write (what the reactors of that write typically do) does not search the tree again;
//   - while a removal is being notified, its key is known to be absent without a search,
//     unless a member was added since.
// Both remembered places are forgotten at the tree's next insertion or removal, which may move
// members. The tree itself remembers where its last search ended, so that a removal or write
// of a key just read takes no second search (see BTree). `Member` is a key-value pair or a key;
// `KeyOf` gives a member's key. Not thread-safe for writes.
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
    if (auto const* member = remembered(key)) {
      return member;
    }
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

  // Writes a set's member: adds it if absent, else only remembers it as the one last written.
  void put(Key const& key) {
    Member* member = remembered(key);
    if (!member) {
      member = tree_.findOrInsert(key, key).first;
    }
    remember(member);
  }

  // Writes a map's member: adds it, or overwrites the value of the present one.
  template <class Value>
  void put(Key const& key, Value&& value) {
    Member* member = remembered(key);
    if (!member) {
      // `value` is used only when the member is added, so it is still there to assign if not.
      auto const [found, added] = tree_.findOrInsert(key, key, std::forward<Value>(value));
      remember(found);
      if (added) {
        return;
      }
      member = found;
    }
    member->second = std::forward<Value>(value);
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

  static bool same(Key const& a, Key const& b) {
    return !std::less<>()(a, b) && !std::less<>()(b, a);
  }

  void remember(Member* member) {
    written_ = member;
    writtenChanges_ = tree_.changes();
  }
  Member* remembered(Key const& key) const {
    bool const valid = written_ && writtenChanges_ == tree_.changes();
    return valid && same(KeyOf()(*written_), key) ? written_ : nullptr;
  }

  bool knownAbsent(Key const& key) const {
    return removal_.key && removal_.changes == tree_.changes() && same(*removal_.key, key);
  }

  Tree tree_;
  Member* written_ = nullptr;
  std::uint64_t writtenChanges_ = 0;
  Removal removal_;
};

}  // namespace Loom
