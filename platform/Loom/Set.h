#pragma once

#include <cstddef>
#include <cstdint>
#include <set>

#include "Loom/Collection.h"

namespace Loom {

// Set-like collection of an entity: members without a mapped value, in ascending key order.
// Notifies like `Collection`: after every `insert` (also of a present member) and after every
// `erase` that removed something. Iteration tolerates removal of the current member.
template <class K, class R = void>
class Set {
  using Underlying = std::set<K>;

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

  bool has(K const& key) const { return set_.contains(key); }
  std::size_t size() const noexcept { return set_.size(); }
  bool empty() const noexcept { return set_.empty(); }

  void insert(K const& key) {
    set_.insert(key);
    notify(key);
  }

  bool erase(K const& key) {
    auto const it = set_.find(key);
    if (it == set_.end()) {
      return false;
    }
    // Keep the member's storage until the reactors are done: `key` may refer into it.
    auto const removed = set_.extract(it);
    ++removals_;
    notify(key);
    return true;
  }

  void clear() {
    while (!set_.empty()) {
      K const key = *set_.begin();
      erase(key);
    }
  }

  const_iterator begin() const { return const_iterator(this, set_.begin()); }
  const_iterator end() const { return const_iterator(this, set_.end()); }

  Underlying const& underlying() const noexcept { return set_; }
  std::uint64_t removals() const noexcept { return removals_; }
  static K const& keyOf(K const& element) { return element; }

 private:
  void notify(K const& key) {
    if constexpr (!std::is_void_v<R>) {
      publisher_->notify(handler_, key);
    }
  }

  Underlying set_;
  std::uint64_t removals_ = 0;
  [[no_unique_address]] typename NotifyTarget<R, K>::Publisher publisher_{};
  [[no_unique_address]] typename NotifyTarget<R, K>::Handler handler_{};
};

}  // namespace Loom
