#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "Loom/Collection.h"

namespace Loom {

// Set-like collection of an entity: members without a mapped value, in ascending key order.
// Notifies like `Collection`: after every `insert` (also of a present member) and after every
// `erase` that removed something. Iteration tolerates removal of the current member; writes and
// read-backs take the shortcuts of MemberTree.
template <class K, class R = void>
class Set {
  struct KeyOfMember {
    K const& operator()(K const& member) const noexcept { return member; }
  };
  using Members = MemberTree<K, KeyOfMember>;

 public:
  using key_type = K;
  using value_type = K;
  using const_iterator = SafeIterator<typename Members::Tree, KeyOfMember>;

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

  // The reactors get the member taken out, which lives until they are done.
  bool erase(K const& key) {
    return members_.remove(key, [this](K const& removed) { notify(removed); });
  }

  void clear() {
    while (!members_.empty()) {
      K const key = *members_.tree().begin();
      erase(key);
    }
  }

  const_iterator begin() const { return const_iterator(&members_.tree(), members_.tree().begin()); }
  const_iterator end() const { return const_iterator(&members_.tree(), members_.tree().end()); }

 private:
  void notify(K const& key) {
    if constexpr (!std::is_void_v<R>) {
      publisher_->notify(handler_, key);
    }
  }

  Members members_;
  [[no_unique_address]] typename NotifyTarget<R, K>::Publisher publisher_{};
  [[no_unique_address]] typename NotifyTarget<R, K>::Handler handler_{};
};

}  // namespace Loom
