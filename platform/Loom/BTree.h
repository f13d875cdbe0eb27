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

 private:
  // Up to `N` values of `T` packed from index 0; `count` of them are alive.
  template <class T, std::size_t N>
  struct Packed {
    std::size_t count = 0;
    alignas(T) std::byte storage[N * sizeof(T)];

    T& at(std::size_t i) { return *std::launder(reinterpret_cast<T*>(storage) + i); }
    T* raw(std::size_t i) { return reinterpret_cast<T*>(storage) + i; }

    // Moves the value at `from` into the free place `to`.
    static void relocate(T* to, T* from) noexcept {
      std::construct_at(to, std::move(*from));
      std::destroy_at(from);
    }
    // Moves the values from `i` on `n` places up, into free places; the count stays.
    void moveUp(std::size_t i, std::size_t n) {
      for (std::size_t j = count; j > i; --j) {
        relocate(raw(j - 1 + n), raw(j - 1));
      }
    }
    // Moves the values from `i` on `n` places down, into free places; the count stays.
    void moveDown(std::size_t i, std::size_t n) {
      for (std::size_t j = i; j < count; ++j) {
        relocate(raw(j - n), raw(j));
      }
    }
    // Moves `n` values from `from`'s index `at` to the end of these, closing `from`'s gap.
    void takeFrom(Packed& from, std::size_t at, std::size_t n) {
      for (std::size_t j = 0; j < n; ++j) {
        relocate(raw(count + j), from.raw(at + j));
      }
      count += n;
      from.moveDown(at + n, n);
      from.count -= n;
    }
    // The first index whose value `after` says is past the searched place (false, then true).
    template <class After>
    std::size_t firstWhere(After after) {
      std::size_t lo = 0;
      std::size_t hi = count;
      while (lo < hi) {
        std::size_t const mid = (lo + hi) / 2;
        if (after(at(mid))) {
          hi = mid;
        } else {
          lo = mid + 1;
        }
      }
      return lo;
    }
    ~Packed() { std::destroy_n(raw(0), count); }
  };

  struct Leaf : Packed<Member, kLeafSlots> {
    Leaf* next = nullptr;

    std::size_t lowerBound(Key const& key) {
      return this->firstWhere([&](Member const& m) { return !less(KeyOf()(m), key); });
    }
    // Opens slot `i` and builds the new member there.
    template <class... Args>
    Member& emplace(std::size_t i, Args&&... args) {
      this->moveUp(i, 1);
      ++this->count;
      return *std::construct_at(this->raw(i), std::forward<Args>(args)...);
    }
    // Destroys slot `i` and closes the gap.
    void erase(std::size_t i) {
      std::destroy_at(this->raw(i));
      this->moveDown(i + 1, 1);
      --this->count;
    }
  };

  // Keys, and one child more: child i holds the keys below key i and not below key i - 1.
  struct Inner : Packed<Key, kInnerKeys> {
    std::array<void*, kInnerKeys + 1> children{};

    // The child to descend into for `key`: the number of keys not above it.
    std::size_t childFor(Key const& key) {
      return this->firstWhere([&](Key const& k) { return less(key, k); });
    }
    // Puts `key` at index `i`, and `child` right of it, or left of it when `childLeft`.
    void insert(std::size_t i, Key key, void* child, bool childLeft = false) {
      this->moveUp(i, 1);
      std::construct_at(this->raw(i), std::move(key));
      std::size_t const c = childLeft ? i : i + 1;
      std::copy_backward(children.begin() + c, children.begin() + this->count + 1,
                         children.begin() + this->count + 2);
      children[c] = child;
      ++this->count;
    }
    // Takes out key `i` and the child right of it, or left of it when `childLeft`.
    std::pair<Key, void*> remove(std::size_t i, bool childLeft = false) {
      std::size_t const c = childLeft ? i : i + 1;
      std::pair<Key, void*> removed(std::move(this->at(i)), children[c]);
      std::destroy_at(this->raw(i));
      this->moveDown(i + 1, 1);
      std::copy(children.begin() + c + 1, children.begin() + this->count + 1, children.begin() + c);
      --this->count;
      return removed;
    }
  };

 public:
  // A member's place: its leaf and its index there; the end has no leaf.
  class const_iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using difference_type = std::ptrdiff_t;
    using value_type = Member;
    using reference = Member const&;
    using pointer = Member const*;

    const_iterator() = default;
    Member const& operator*() const { return leaf_->at(index_); }
    Member const* operator->() const { return &leaf_->at(index_); }
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

  // Handlers read the same key several times in a row, and read back what they just wrote:
  // the place of the last search or write answers without a descent.
  const_iterator find(Key const& key) const {
    if (!root_) {
      return end();
    }
    auto const recent = recentSpot(key);
    auto const spot = recent ? *recent : search(key);
    return spot.found ? const_iterator(spot.leaf, spot.index) : end();
  }
  const_iterator lowerBound(Key const& key) const {
    return bound([&](Key const& member) { return !less(member, key); });
  }
  const_iterator upperBound(Key const& key) const {
    return bound([&](Key const& member) { return less(key, member); });
  }

  // The member with `key`, or else a new one built from `args` (which are then used, and only
  // then); `second` tells whether it was added. A key above every present key goes in at the end
  // without comparisons on the way down.
  template <class... Args>
  std::pair<Member*, bool> findOrInsert(Key const& key, Args&&... args) {
    auto const recent = root_ ? recentSpot(key) : std::nullopt;
    if (recent && recent->found) {
      return {&recent->leaf->at(recent->index), false};
    }
    Spot spot;
    if (!root_) {
      root_ = first_ = last_ = newLeaf();
      spot = Spot{first_, 0, true};
      first_->emplace(0, std::forward<Args>(args)...);
    } else if (recent && recent->leaf->count < kLeafSlots) {
      spot = Spot{recent->leaf, recent->index, true};
      spot.leaf->emplace(spot.index, std::forward<Args>(args)...);
    } else {
      Path path;
      bool const append = less(KeyOf()(last_->at(last_->count - 1)), key);
      Leaf* leaf = append ? rightmostLeaf(path) : descend(key, &path);
      std::size_t const index = append ? leaf->count : leaf->lowerBound(key);
      if (!append && index < leaf->count && !less(key, KeyOf()(leaf->at(index)))) {
        remember(Spot{leaf, index, true});
        return {&leaf->at(index), false};
      }
      spot = leaf->count < kLeafSlots
                 ? (leaf->emplace(index, std::forward<Args>(args)...), Spot{leaf, index, true})
                 : splitLeafAndInsert(path, *leaf, index, std::forward<Args>(args)...);
    }
    ++changes_;
    ++size_;
    remember(spot);
    return {&spot.leaf->at(spot.index), true};
  }

  // Takes the member with `key` out of the tree and returns it, or nothing when absent.
  std::optional<Member> take(Key const& key) {
    if (!root_) {
      return std::nullopt;
    }
    auto const recent = recentSpot(key);
    if (recent && !recent->found) {
      return std::nullopt;
    }
    // A leaf that stays above its minimum needs nothing else: no path to the root.
    if (recent && recent->leaf->count > kMinLeafSlots && (recent->leaf->count > 1 || height_ > 0)) {
      return takeAt(*recent->leaf, recent->index);
    }
    Path path;
    Leaf* leaf = descend(key, &path);
    std::size_t const index = leaf->lowerBound(key);
    if (index == leaf->count || less(key, KeyOf()(leaf->at(index)))) {
      return std::nullopt;
    }
    auto taken = takeAt(*leaf, index);
    rebalanceAfterErase(path, *leaf);
    return taken;
  }

 private:
  // Leaves under height 0; an inner node's children are one level lower.
  static constexpr std::size_t kMaxHeight = 48;
  static constexpr std::size_t kMinLeafSlots = kLeafSlots / 3;
  static constexpr std::size_t kMinInnerKeys = kInnerKeys / 3;

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

  // A member's place, or where a key would go: the leaf a descent reaches and the lower bound
  // there.
  struct Spot {
    Leaf* leaf = nullptr;
    std::size_t index = 0;
    bool found = false;
  };

  static bool less(Key const& a, Key const& b) { return Less()(a, b); }

  // Remembers a place while the framework runs one thread, so that a read, write or removal of
  // the same key right after does not descend again; readers on several threads leave it alone.
  void remember(Spot spot) const {
    if (!Threading::multiThreaded()) {
      recent_ = spot;
      recentChanges_ = changes_;
    }
  }

  Spot search(Key const& key) const {
    Leaf* leaf = descend(key);
    std::size_t const index = leaf->lowerBound(key);
    Spot const spot{leaf, index, index < leaf->count && !less(key, KeyOf()(leaf->at(index)))};
    remember(spot);
    return spot;
  }

  // The remembered place if it is `key`'s: nothing changed since, and the key is the member
  // there, or lies strictly between two members of that leaf (so that a descent would end in
  // the same leaf at the same place).
  std::optional<Spot> recentSpot(Key const& key) const {
    if (!recent_.leaf || recentChanges_ != changes_ || Threading::multiThreaded()) {
      return std::nullopt;
    }
    Spot const spot = recent_;
    Leaf& leaf = *spot.leaf;
    if (spot.found) {
      Key const& there = KeyOf()(leaf.at(spot.index));
      bool const same = !less(key, there) && !less(there, key);
      return same ? std::optional(spot) : std::nullopt;
    }
    bool const inside = spot.index > 0 && spot.index < leaf.count &&
                        less(KeyOf()(leaf.at(spot.index - 1)), key) &&
                        less(key, KeyOf()(leaf.at(spot.index)));
    return inside ? std::optional(spot) : std::nullopt;
  }

  // The first member that `after` says is at or past the bound.
  template <class After>
  const_iterator bound(After after) const {
    if (!root_) {
      return end();
    }
    // Every member that `after` rejects sorts before every one it takes, and separators copy
    // members' keys, so the descent follows the same test.
    void* node = root_;
    for (std::size_t level = height_; level > 0; --level) {
      auto* inner = static_cast<Inner*>(node);
      node = inner->children[inner->firstWhere([&](Key const& k) { return after(k); })];
    }
    auto* leaf = static_cast<Leaf*>(node);
    std::size_t const index =
        leaf->firstWhere([&](Member const& member) { return after(KeyOf()(member)); });
    // The bound is in this leaf or is the first member of the next one.
    if (index == leaf->count) {
      return leaf->next ? const_iterator(leaf->next, 0) : end();
    }
    return const_iterator(leaf, index);
  }

  // Descends to `key`'s leaf, recording the way when asked.
  Leaf* descend(Key const& key, Path* path = nullptr) const {
    void* node = root_;
    for (std::size_t level = height_; level > 0; --level) {
      auto* inner = static_cast<Inner*>(node);
      std::size_t const child = inner->childFor(key);
      if (path) {
        path->push(inner, child);
      }
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

  std::optional<Member> takeAt(Leaf& leaf, std::size_t index) {
    ++changes_;
    --size_;
    std::optional<Member> taken(std::move(leaf.at(index)));
    leaf.erase(index);
    return taken;
  }

  // A full leaf gets a right sibling, split where the new member goes: it ends the leaf and
  // the members above it start the sibling (or, after the leaf's last member, it starts the
  // sibling alone). Keys are mostly written as runs in ascending order (at the tree's end, or
  // at the end of a range such as one split-horizon group), and the next key of the run then
  // lands at the leaf's end again, so that runs fill their leaves instead of leaving every leaf
  // they pass half empty. Returns the new member's place.
  template <class... Args>
  Spot splitLeafAndInsert(Path& path, Leaf& leaf, std::size_t index, Args&&... args) {
    bool const atEnd = index == leaf.count;
    auto* right = newLeaf();
    right->takeFrom(leaf, index, leaf.count - index);
    right->next = leaf.next;
    if (!leaf.next) {
      last_ = right;
    }
    leaf.next = right;
    Spot const spot = atEnd ? Spot{right, 0, true} : Spot{&leaf, index, true};
    spot.leaf->emplace(spot.index, std::forward<Args>(args)...);
    insertIntoParent(path, &leaf, KeyOf()(right->at(0)), right);
    return spot;
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
      std::copy(parent->children.begin() + mid + 1, parent->children.begin() + parent->count + 1,
                sibling->children.begin());
      sibling->takeFrom(*parent, mid + 1, parent->count - mid - 1);
      Key up = std::move(parent->at(mid));
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
      if (!right->next) {
        last_ = left;
      }
      freeLeaf(right);
      parent->remove(leftIndex);
      rebalanceInner(path, path.depth - 1);
      return;
    }
    // Even out the two, then the separator is the right one's first key.
    if (left->count > right->count) {
      std::size_t const n = (left->count - right->count) / 2;
      right->moveUp(0, n);
      for (std::size_t j = 0; j < n; ++j) {
        Leaf::relocate(right->raw(j), left->raw(left->count - n + j));
      }
      left->count -= n;
      right->count += n;
    } else {
      left->takeFrom(*right, 0, (right->count - left->count) / 2);
    }
    parent->at(leftIndex) = KeyOf()(right->at(0));
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
      std::copy(right->children.begin(), right->children.begin() + right->count + 1,
                left->children.begin() + left->count + 1);
      std::construct_at(left->raw(left->count++), std::move(parent->at(leftIndex)));
      left->takeFrom(*right, 0, right->count);
      freeInner(right);
      parent->remove(leftIndex);
      rebalanceInner(path, level - 1);
      return;
    }
    while (left->count > right->count + 1) {
      auto [key, lastChild] = left->remove(left->count - 1);
      right->insert(0, std::exchange(parent->at(leftIndex), std::move(key)), lastChild, true);
    }
    while (right->count > left->count + 1) {
      auto [key, firstChild] = right->remove(0, true);
      left->insert(left->count, std::exchange(parent->at(leftIndex), std::move(key)), firstChild);
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
  // The last place searched or written and the changes when it was (see remember()).
  mutable Spot recent_;
  mutable std::uint64_t recentChanges_ = 0;
};

}  // namespace Loom
