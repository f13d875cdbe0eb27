#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

#include "Loom/MemberTree.h"
#include "Loom/Publisher.h"
#include "Loom/SafeIterator.h"

namespace Loom {

// Keyed collection of an entity: values by key, iterated in ascending key order.
//
// `R` is the owning entity's reactor interface, or void for a collection that notifies nobody
// (an entity's local state). A notifying collection calls its member's handler on the owner's
// publisher with the key after every `set` (also when the value did not change) and after
// every `erase` that removed something; erasing an absent key notifies nobody. `clear` erases
// member by member, in key order, with one notification each.
//
// Iteration tolerates removal of the current member (see SafeIterator). Writing keys in
// ascending order, and reading back a member just written, take no search (see MemberTree).
// Members live in a B-tree and move when others are added or removed: a reference to a value
// or a member holds until the collection's next insertion or removal.
// Where a collection of key type `K` sends its notifications: the owner's publisher and the
// member's handler, or nothing for a collection without reactors.
template <class R, class K>
struct NotifyTarget {
  using Publisher = Loom::Publisher<R>*;
  using Handler = void (R::*)(K const&);
};
template <class K>
struct NotifyTarget<void, K> {
  struct None {};
  using Publisher = None;
  using Handler = None;
};

template <class K, class V, class R = void>
class Collection {
  struct KeyOfMember {
    K const& operator()(std::pair<K, V> const& member) const noexcept { return member.first; }
  };
  using Members = MemberTree<std::pair<K, V>, KeyOfMember>;

 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = std::pair<K, V>;
  using const_iterator = SafeIterator<typename Members::Tree, KeyOfMember>;

  Collection() requires std::is_void_v<R>
  = default;

  template <class Reactor = R>
  requires(!std::is_void_v<Reactor>)
      Collection(Publisher<Reactor>& publisher, void (Reactor::*handler)(K const&))
      : publisher_(&publisher), handler_(handler) {}

  Collection(Collection const&) = delete;
  Collection& operator=(Collection const&) = delete;

  // The value, valid until the collection next adds or removes a member.
  V const* find(K const& key) const {
    auto const* member = members_.find(key);
    return member ? &member->second : nullptr;
  }
  V* findMutable(K const& key) {
    auto* member = members_.findMutable(key);
    return member ? &member->second : nullptr;
  }
  V valueOr(K const& key, V const& fallback) const {
    auto const* v = find(key);
    return v ? *v : fallback;
  }
  bool has(K const& key) const { return members_.has(key); }
  std::size_t size() const noexcept { return members_.size(); }
  bool empty() const noexcept { return members_.empty(); }

  void set(K const& key, V value) {
    members_.put(key, std::move(value));
    notify(key);
  }

  // The reactors get the key of the member taken out, which lives until they are done.
  bool erase(K const& key) {
    return members_.remove(key, [this](K const& removed) { notify(removed); });
  }

  void clear() {
    while (!members_.empty()) {
      K const key = members_.tree().begin()->first;
      erase(key);
    }
  }

  const_iterator begin() const { return const_iterator(&members_.tree(), members_.tree().begin()); }
  const_iterator end() const { return const_iterator(&members_.tree(), members_.tree().end()); }
  // The first member whose key is not below `key`: iteration over a range of keys.
  const_iterator lowerBound(K const& key) const {
    return const_iterator(&members_.tree(), members_.tree().lowerBound(key));
  }

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
