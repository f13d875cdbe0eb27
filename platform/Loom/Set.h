#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>

#include "Loom/Collection.h"

namespace Loom {

// Set-like collection of an entity: members without a mapped value, in ascending key order.
// Notifies like `Collection`: after every `insert` (also of a present member) and after every
// `erase` that removed something. Iteration tolerates removal of the current member; writes and
// read-backs take the shortcuts of MemberTree.
template <class K, class R = void>
class Set {
  using Underlying = std::set<K, std::less<K>, SlabNodeAllocator<K>>;

 public:
  using key_type = K;
  using value_type = K;
  using const_iterator = SafeIterator<Set, typename Underlying::const_iterator, K, K const&>;

  Set() requires std::is_void_v<R>
  = default;

  template <class Reactor = R>
  requires(!std::is_void_v<Reactor>)
      Set(Publisher<Reactor>& publisher, void (Reactor::*handler)(K const&))
      : publisher_(&publisher), handler_(handler) {}

  Set(Set const&) = delete;
  Set& operator=(Set const&) = delete;

  bool has(K const& key) const { return members_.has(key); }
  std::size_t size() const noexcept { return members_.size(); }
  bool empty() const noexcept { return members_.empty(); }

  void insert(K const& key) {
    members_.put(key);
    notify(key);
  }

  bool erase(K const& key) {
    auto const it = members_.find(key);
    if (it == members_.tree().end()) {
      return false;
    }
    // The member's storage stays until the reactors are done: `key` may refer into it.
    ++removals_;
    members_.remove(it, [&] { notify(key); });
    return true;
  }

  void clear() {
    while (!members_.empty()) {
      K const key = *members_.tree().begin();
      erase(key);
    }
  }

  const_iterator begin() const { return const_iterator(this, members_.tree().begin()); }
  const_iterator end() const { return const_iterator(this, members_.tree().end()); }

  Underlying const& underlying() const noexcept { return members_.tree(); }
  std::uint64_t removals() const noexcept { return removals_; }
  static K const& keyOf(K const& element) { return element; }

 private:
  struct KeyOfMember {
    K const& operator()(K const& member) const noexcept { return member; }
  };

  void notify(K const& key) {
    if constexpr (!std::is_void_v<R>) {
      publisher_->notify(handler_, key);
    }
  }

  MemberTree<Underlying, KeyOfMember> members_;
  std::uint64_t removals_ = 0;
  [[no_unique_address]] typename NotifyTarget<R, K>::Publisher publisher_{};
  [[no_unique_address]] typename NotifyTarget<R, K>::Handler handler_{};
};

}  // namespace Loom
