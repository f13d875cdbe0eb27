#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include "Loom/SlabNodeAllocator.h"
#include "Loom/Threading.h"

namespace Loom {

// An ordered tree of members for the framework's collections: a B+ tree whose leaves hold the
// members themselves, packed in key order, and whose inner nodes hold copies of separating keys.
// A collection of half a million members is three or four levels deep, and a search reads a few
// contiguous nodes instead of twenty scattered ones.
//
// Members move when their leaf splits, merges or shifts: a position or a reference to a member
// is valid until the next insertion or removal (`changes()` counts them), and is found again by
// key after that. Nodes come from the slab of their node type (SlabNodeAllocator).
//
// Invariants: keys in the subtree left of an inner node's key i are below it and keys right of
// it are not; every leaf is at the same depth, and leaves are linked in key order; no node but
// the root is empty, and a removal that leaves a node below a third of its capacity has it
// borrow from or merge with a sibling. An empty tree holds no node. `Member` is the stored type,
// `KeyOf` gives its key, `Less` orders keys. Not thread-safe for writes; concurrent reads are safe
// (a read remembers where it ended only while the framework runs one thread).
template <class Member, class KeyOf, class Less>
class BTree {
  struct Inner;
  struct Leaf;

 public:
  using Key = std::remove_cvref_t<decltype(KeyOf()(std::declval<Member const&>()))>;

  static_assert(std::is_nothrow_move_constructible_v<Member>,
                "members move between leaves and must not throw doing so");

  // Capacities: nodes of about 512 bytes, so that a level costs a few cache lines, with at
  // least 6 slots so that splits and merges have room; at most 16 members to a leaf, so that
  // the many small collections (a handful of members each) stay small.
  static constexpr std::size_t kLeafSlots = std::clamp<std::size_t>(512 / sizeof(Member), 6, 16);
  static constexpr std::size_t kInnerKeys =
      std::clamp<std::size_t>(512 / (sizeof(Key) + sizeof(void*)), 6, 64);

  // A member's place: its leaf and its index there; the end has no leaf.
  class const_iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using difference_type = std::ptrdiff_t;
    using value_type = Member;
    using reference = Member const&;
    using pointer = Member const*;

    const_iterator() = default;
    Member const& operator*() const { return leaf_->slot(index_); }
    Member const* operator->() const { return &leaf_->slot(index_); }
    const_iterator& operator++() {
      if (++index_ == leaf_->count) {
        leaf_ = leaf_->next;
        index_ = 0;
      }
      return *this;
    }
    const_iterator operator++(int) {
      auto copy = *this;
      ++*this;
      return copy;
    }
    bool operator==(const_iterator const&) const = default;

   private:
    friend class BTree;
    const_iterator(Leaf* leaf, std::size_t index) : leaf_(leaf), index_(index) {}

    Leaf* leaf_ = nullptr;
    std::size_t index_ = 0;
  };

  BTree() = default;
  BTree(BTree const&) = delete;
  BTree& operator=(BTree const&) = delete;
  ~BTree() { destroy(root_, height_); }

  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  // Insertions and removals so far: positions and references taken before the last one moved.
  std::uint64_t changes() const noexcept { return changes_; }

  const_iterator begin() const { return first_ ? const_iterator(first_, 0) : end(); }
  const_iterator end() const { return {}; }
  // The member with the highest key, or null when empty.
  Member const* last() const { return last_ ? &last_->slot(last_->count - 1) : nullptr; }

  const_iterator find(Key const& key) const {
    if (!root_) {
      return end();
    }
    // Handlers read the same key several times in a row.
    auto const recent = recentSpot(key);
    auto const spot = recent ? *recent : search(key);
    return spot.found ? const_iterator(spot.leaf, spot.index) : end();
  }
  const_iterator lowerBound(Key const& key) const {
    return bound(key, [](Key const& k, Key const& member) { return !Less()(member, k); });
  }
  const_iterator upperBound(Key const& key) const {
    return bound(key, [](Key const& k, Key const& member) { return Less()(k, member); });
  }

  // The member with `key`, or else a new one built from `args` (which are then used, and only
  // then); `second` tells whether it was added. A key above every present key goes in at the end
  // without comparisons on the way down.
  template <class... Args>
  std::pair<Member*, bool> findOrInsert(Key const& key, Args&&... args) {
    if (!root_) {
      ++changes_;
      ++size_;
      auto* leaf = newLeaf();
      root_ = first_ = last_ = leaf;
      return {&leaf->emplace(0, std::forward<Args>(args)...), true};
    }
    if (auto const spot = recentSpot(key)) {
      if (spot->found) {
        return {&spot->leaf->slot(spot->index), false};
      }
      if (spot->leaf->count < kLeafSlots) {
        ++changes_;
        ++size_;
        return {&spot->leaf->emplace(spot->index, std::forward<Args>(args)...), true};
      }
    }
    Path path;
    bool const append = less(KeyOf()(*last()), key);
    Leaf* leaf = append ? rightmostLeaf(path) : descend(key, path);
    std::size_t const index = append ? leaf->count : leaf->lowerBound(key);
    if (!append && index < leaf->count && !less(key, KeyOf()(leaf->slot(index)))) {
      return {&leaf->slot(index), false};
    }
    ++changes_;
    ++size_;
    if (leaf->count < kLeafSlots) {
      return {&leaf->emplace(index, std::forward<Args>(args)...), true};
    }
    return {&splitLeafAndInsert(path, *leaf, index, std::forward<Args>(args)...), true};
  }

  // Takes the member with `key` out of the tree and returns it, or nothing when absent.
  std::optional<Member> take(Key const& key) {
    if (!root_) {
      return std::nullopt;
    }
    if (auto const spot = recentSpot(key)) {
      if (!spot->found) {
        return std::nullopt;
      }
      // A leaf that stays above its minimum needs nothing else: no path to the root.
      Leaf* leaf = spot->leaf;
      if (leaf->count > kMinLeafSlots && (leaf->count > 1 || height_ > 0)) {
        ++changes_;
        --size_;
        std::optional<Member> taken(std::move(leaf->slot(spot->index)));
        leaf->erase(spot->index);
        return taken;
      }
    }
    Path path;
    Leaf* leaf = descend(key, path);
    std::size_t const index = leaf->lowerBound(key);
    if (index == leaf->count || less(key, KeyOf()(leaf->slot(index)))) {
      return std::nullopt;
    }
    ++changes_;
    --size_;
    std::optional<Member> taken(std::move(leaf->slot(index)));
    leaf->erase(index);
    rebalanceAfterErase(path, *leaf);
    return taken;
  }

 private:
  // Leaves under height 0; an inner node's children are one level lower.
  static constexpr std::size_t kMaxHeight = 48;
  static constexpr std::size_t kMinLeafSlots = kLeafSlots / 3;
  static constexpr std::size_t kMinInnerKeys = kInnerKeys / 3;

  struct Leaf {
    std::size_t count = 0;
    Leaf* prev = nullptr;
    Leaf* next = nullptr;
    alignas(Member) std::byte storage[kLeafSlots * sizeof(Member)];

    Member& slot(std::size_t i) { return *std::launder(reinterpret_cast<Member*>(storage) + i); }
    Member* raw(std::size_t i) { return reinterpret_cast<Member*>(storage) + i; }

    std::size_t lowerBound(Key const& key) {
      std::size_t lo = 0;
      std::size_t hi = count;
      while (lo < hi) {
        std::size_t const mid = (lo + hi) / 2;
        if (less(KeyOf()(slot(mid)), key)) {
          lo = mid + 1;
        } else {
          hi = mid;
        }
      }
      return lo;
    }
    // Opens slot `i` by moving the members from it one up, and builds the new member there.
    template <class... Args>
    Member& emplace(std::size_t i, Args&&... args) {
      shiftUp(i);
      ++count;
      return *std::construct_at(raw(i), std::forward<Args>(args)...);
    }
    // Moves the members from slot `i` on `n` slots up; the count stays.
    void shiftUp(std::size_t i, std::size_t n = 1) {
      for (std::size_t j = count; j > i; --j) {
        std::construct_at(raw(j - 1 + n), std::move(slot(j - 1)));
        std::destroy_at(raw(j - 1));
      }
    }
    // Destroys slot `i` and closes the gap.
    void erase(std::size_t i) {
      std::destroy_at(raw(i));
      for (std::size_t j = i + 1; j < count; ++j) {
        std::construct_at(raw(j - 1), std::move(slot(j)));
        std::destroy_at(raw(j));
      }
      --count;
    }
    // Moves `n` members from `from`'s slot `at` to the end of this leaf, closing `from`'s gap.
    void takeFrom(Leaf& from, std::size_t at, std::size_t n) {
      for (std::size_t j = 0; j < n; ++j) {
        std::construct_at(raw(count + j), std::move(from.slot(at + j)));
        std::destroy_at(from.raw(at + j));
      }
      count += n;
      for (std::size_t j = at + n; j < from.count; ++j) {
        std::construct_at(from.raw(j - n), std::move(from.slot(j)));
        std::destroy_at(from.raw(j));
      }
      from.count -= n;
    }
    ~Leaf() { std::destroy_n(raw(0), count); }
  };

  struct Inner {
    std::size_t count = 0;  // keys; children are one more
    std::array<void*, kInnerKeys + 1> children{};
    alignas(Key) std::byte storage[kInnerKeys * sizeof(Key)];

    Key& key(std::size_t i) { return *std::launder(reinterpret_cast<Key*>(storage) + i); }
    Key* raw(std::size_t i) { return reinterpret_cast<Key*>(storage) + i; }

    // The child to descend into for `key`: the number of keys not above it.
    std::size_t childFor(Key const& k) {
      std::size_t lo = 0;
      std::size_t hi = count;
      while (lo < hi) {
        std::size_t const mid = (lo + hi) / 2;
        if (less(k, key(mid))) {
          hi = mid;
        } else {
          lo = mid + 1;
        }
      }
      return lo;
    }
    // Puts `k` at key index `i` and `child` right of it.
    void insert(std::size_t i, Key k, void* child) {
      for (std::size_t j = count; j > i; --j) {
        std::construct_at(raw(j), std::move(key(j - 1)));
        std::destroy_at(raw(j - 1));
        children[j + 1] = children[j];
      }
      std::construct_at(raw(i), std::move(k));
      children[i + 1] = child;
      ++count;
    }
    void pushBack(Key k, void* child) { insert(count, std::move(k), child); }
    // Puts `k` and `child` before the first key and child.
    void pushFront(Key k, void* child) {
      for (std::size_t j = count; j > 0; --j) {
        std::construct_at(raw(j), std::move(key(j - 1)));
        std::destroy_at(raw(j - 1));
      }
      std::copy_backward(children.begin(), children.begin() + count + 1,
                         children.begin() + count + 2);
      std::construct_at(raw(0), std::move(k));
      children[0] = child;
      ++count;
    }
    // Takes out the last key and the last child.
    std::pair<Key, void*> popBack() {
      std::pair<Key, void*> last(std::move(key(count - 1)), children[count]);
      std::destroy_at(raw(count - 1));
      --count;
      return last;
    }
    // Takes out the first key and the first child.
    std::pair<Key, void*> popFront() {
      std::pair<Key, void*> first(std::move(key(0)), children[0]);
      std::destroy_at(raw(0));
      for (std::size_t j = 1; j < count; ++j) {
        std::construct_at(raw(j - 1), std::move(key(j)));
        std::destroy_at(raw(j));
      }
      std::copy(children.begin() + 1, children.begin() + count + 1, children.begin());
      --count;
      return first;
    }
    // Removes key `i` and the child right of it.
    void erase(std::size_t i) {
      std::destroy_at(raw(i));
      for (std::size_t j = i + 1; j < count; ++j) {
        std::construct_at(raw(j - 1), std::move(key(j)));
        std::destroy_at(raw(j));
        children[j] = children[j + 1];
      }
      --count;
    }
    ~Inner() { std::destroy_n(raw(0), count); }
  };

  // The inner nodes on the way from the root to a leaf, with the child taken at each.
  struct Step {
    Inner* node;
    std::size_t child;
  };
  struct Path {
    std::array<Step, kMaxHeight> steps;
    std::size_t depth = 0;
    void push(Inner* node, std::size_t child) { steps[depth++] = Step{node, child}; }
  };

  static bool less(Key const& a, Key const& b) { return Less()(a, b); }

  // Where a search for a key ended: the leaf the descent reached and the lower bound there.
  struct Spot {
    Leaf* leaf = nullptr;
    std::size_t index = 0;
    bool found = false;
  };

  // Descends to the key's leaf. Remembers the spot while the framework runs one thread, so that
  // a write or removal of the same key right after the read (has-then-delete, read-then-write)
  // does not search again; readers on several threads leave it alone.
  Spot search(Key const& key) const {
    void* node = root_;
    for (std::size_t level = height_; level > 0; --level) {
      auto* inner = static_cast<Inner*>(node);
      node = inner->children[inner->childFor(key)];
    }
    auto* leaf = static_cast<Leaf*>(node);
    std::size_t const index = leaf->lowerBound(key);
    Spot const spot{leaf, index, index < leaf->count && !less(key, KeyOf()(leaf->slot(index)))};
    if (!Threading::multiThreaded()) {
      recent_ = spot;
      recentChanges_ = changes_;
    }
    return spot;
  }

  // The remembered spot if it is `key`'s: nothing changed since, and the key is the member
  // there, or lies strictly between two members of that leaf (so that a descent would end in
  // the same leaf at the same place).
  std::optional<Spot> recentSpot(Key const& key) const {
    if (!recent_.leaf || recentChanges_ != changes_ || Threading::multiThreaded()) {
      return std::nullopt;
    }
    Spot const spot = recent_;
    Leaf& leaf = *spot.leaf;
    if (spot.found) {
      bool const same =
          !less(key, KeyOf()(leaf.slot(spot.index))) && !less(KeyOf()(leaf.slot(spot.index)), key);
      return same ? std::optional(spot) : std::nullopt;
    }
    bool const inside = spot.index > 0 && spot.index < leaf.count &&
                        less(KeyOf()(leaf.slot(spot.index - 1)), key) &&
                        less(key, KeyOf()(leaf.slot(spot.index)));
    return inside ? std::optional(spot) : std::nullopt;
  }

  template <class Before>
  const_iterator bound(Key const& key, Before before) const {
    if (!root_) {
      return end();
    }
    void* node = root_;
    for (std::size_t level = height_; level > 0; --level) {
      auto* inner = static_cast<Inner*>(node);
      node = inner->children[inner->childFor(key)];
    }
    auto* leaf = static_cast<Leaf*>(node);
    std::size_t lo = 0;
    std::size_t hi = leaf->count;
    while (lo < hi) {
      std::size_t const mid = (lo + hi) / 2;
      if (before(key, KeyOf()(leaf->slot(mid)))) {
        hi = mid;
      } else {
        lo = mid + 1;
      }
    }
    // Members equal to a separator start the right subtree, so the bound is in this leaf or is
    // the first member of the next one.
    if (lo == leaf->count) {
      return leaf->next ? const_iterator(leaf->next, 0) : end();
    }
    return const_iterator(leaf, lo);
  }

  Leaf* descend(Key const& key, Path& path) const {
    void* node = root_;
    for (std::size_t level = height_; level > 0; --level) {
      auto* inner = static_cast<Inner*>(node);
      std::size_t const child = inner->childFor(key);
      path.push(inner, child);
      node = inner->children[child];
    }
    return static_cast<Leaf*>(node);
  }

  Leaf* rightmostLeaf(Path& path) const {
    void* node = root_;
    for (std::size_t level = height_; level > 0; --level) {
      auto* inner = static_cast<Inner*>(node);
      path.push(inner, inner->count);
      node = inner->children[inner->count];
    }
    return static_cast<Leaf*>(node);
  }

  // A full leaf gets a right sibling, split where the new member goes: it ends the leaf and
  // the members above it start the sibling (or, after the leaf's last member, it starts the
  // sibling alone). Keys are mostly written as runs in ascending order
  // (at the tree's end, or at the end of a range such as one split-horizon group), and the next
  // key of the run then lands at the leaf's end again, so that runs fill their leaves instead of
  // leaving every leaf they pass half empty.
  template <class... Args>
  Member& splitLeafAndInsert(Path& path, Leaf& leaf, std::size_t index, Args&&... args) {
    bool const atEnd = index == leaf.count;
    std::size_t const split = index;
    auto* right = newLeaf();
    right->takeFrom(leaf, split, leaf.count - split);
    right->prev = &leaf;
    right->next = leaf.next;
    (leaf.next ? leaf.next->prev : last_) = right;
    leaf.next = right;
    Member& member = atEnd ? right->emplace(0, std::forward<Args>(args)...)
                           : leaf.emplace(index, std::forward<Args>(args)...);
    insertIntoParent(path, &leaf, KeyOf()(right->slot(0)), right);
    return member;
  }

  // After `left` split off `right` at `separator`: the separator and `right` go into the parent,
  // splitting it in turn when full, up to a new root.
  void insertIntoParent(Path& path, void* left, Key separator, void* right) {
    while (path.depth > 0) {
      auto const [parent, child] = path.steps[--path.depth];
      if (parent->count < kInnerKeys) {
        parent->insert(child, std::move(separator), right);
        return;
      }
      // Split the full parent first, where the new key goes (as for leaves), then insert into
      // the half that holds the child; each half keeps at least one key.
      std::size_t const mid =
          child == parent->count ? kInnerKeys - 1 : std::min(child, kInnerKeys - 2);
      auto* sibling = newInner();
      for (std::size_t j = mid + 1; j < parent->count; ++j) {
        std::construct_at(sibling->raw(j - mid - 1), std::move(parent->key(j)));
        std::destroy_at(parent->raw(j));
      }
      for (std::size_t j = mid + 1; j <= parent->count; ++j) {
        sibling->children[j - mid - 1] = parent->children[j];
      }
      sibling->count = parent->count - mid - 1;
      Key up = std::move(parent->key(mid));
      std::destroy_at(parent->raw(mid));
      parent->count = mid;
      if (child <= mid) {
        parent->insert(child, std::move(separator), right);
      } else {
        sibling->insert(child - mid - 1, std::move(separator), right);
      }
      separator = std::move(up);
      left = parent;
      right = sibling;
    }
    auto* root = newInner();
    root->children[0] = left;
    root->insert(0, std::move(separator), right);
    root_ = root;
    ++height_;
  }

  // A leaf below its minimum borrows from or merges with a sibling, and the parent the same way
  // upwards; a root with one child hands over to it, and an empty tree frees its last leaf.
  void rebalanceAfterErase(Path& path, Leaf& leaf) {
    if (path.depth == 0) {
      if (leaf.count == 0) {
        freeLeaf(&leaf);
        root_ = nullptr;
        first_ = last_ = nullptr;
      }
      return;
    }
    if (leaf.count >= kMinLeafSlots && leaf.count > 0) {
      return;
    }
    auto const [parent, child] = path.steps[path.depth - 1];
    std::size_t const leftIndex = child > 0 ? child - 1 : child;
    auto* left = static_cast<Leaf*>(parent->children[leftIndex]);
    auto* right = static_cast<Leaf*>(parent->children[leftIndex + 1]);
    if (left->count + right->count <= kLeafSlots) {
      left->takeFrom(*right, 0, right->count);
      left->next = right->next;
      (right->next ? right->next->prev : last_) = left;
      freeLeaf(right);
      parent->erase(leftIndex);
      rebalanceInner(path, path.depth - 1);
      return;
    }
    // Even out the two, then the separator is the right one's first key.
    if (left->count > right->count) {
      std::size_t const n = (left->count - right->count) / 2;
      right->shiftUp(0, n);
      for (std::size_t j = 0; j < n; ++j) {
        std::construct_at(right->raw(j), std::move(left->slot(left->count - n + j)));
        std::destroy_at(left->raw(left->count - n + j));
      }
      left->count -= n;
      right->count += n;
    } else {
      left->takeFrom(*right, 0, (right->count - left->count) / 2);
    }
    parent->key(leftIndex) = KeyOf()(right->slot(0));
  }

  // The inner node at `path.steps[level]` lost a key: the same as for a leaf, one level up,
  // with keys moving through the parent.
  void rebalanceInner(Path& path, std::size_t level) {
    Inner* node = path.steps[level].node;
    if (level == 0) {
      if (node->count == 0) {
        root_ = node->children[0];
        --height_;
        freeInner(node);
      }
      return;
    }
    if (node->count >= kMinInnerKeys) {
      return;
    }
    auto const [parent, child] = path.steps[level - 1];
    std::size_t const leftIndex = child > 0 ? child - 1 : child;
    auto* left = static_cast<Inner*>(parent->children[leftIndex]);
    auto* right = static_cast<Inner*>(parent->children[leftIndex + 1]);
    if (left->count + right->count + 1 <= kInnerKeys) {
      left->pushBack(std::move(parent->key(leftIndex)), right->children[0]);
      for (std::size_t j = 0; j < right->count; ++j) {
        left->pushBack(std::move(right->key(j)), right->children[j + 1]);
      }
      freeInner(right);
      parent->erase(leftIndex);
      rebalanceInner(path, level - 1);
      return;
    }
    while (left->count > right->count + 1) {
      auto [key, lastChild] = left->popBack();
      right->pushFront(std::exchange(parent->key(leftIndex), std::move(key)), lastChild);
    }
    while (right->count > left->count + 1) {
      auto [key, firstChild] = right->popFront();
      left->pushBack(std::exchange(parent->key(leftIndex), std::move(key)), firstChild);
    }
  }

  Leaf* newLeaf() { return std::construct_at(SlabNodeAllocator<Leaf>().allocate(1)); }
  Inner* newInner() { return std::construct_at(SlabNodeAllocator<Inner>().allocate(1)); }
  static void freeLeaf(Leaf* leaf) {
    std::destroy_at(leaf);
    SlabNodeAllocator<Leaf>().deallocate(leaf, 1);
  }
  static void freeInner(Inner* inner) {
    std::destroy_at(inner);
    SlabNodeAllocator<Inner>().deallocate(inner, 1);
  }

  static void destroy(void* node, std::size_t height) {
    if (!node) {
      return;
    }
    if (height == 0) {
      freeLeaf(static_cast<Leaf*>(node));
      return;
    }
    auto* inner = static_cast<Inner*>(node);
    for (std::size_t i = 0; i <= inner->count; ++i) {
      destroy(inner->children[i], height - 1);
    }
    freeInner(inner);
  }

  void* root_ = nullptr;
  std::size_t height_ = 0;
  Leaf* first_ = nullptr;
  Leaf* last_ = nullptr;
  std::size_t size_ = 0;
  std::uint64_t changes_ = 0;
  // The last search's spot and the changes when it was made (see search()).
  mutable Spot recent_;
  mutable std::uint64_t recentChanges_ = 0;
};

}  // namespace Loom
