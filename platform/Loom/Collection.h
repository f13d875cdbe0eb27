#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>

#include "Loom/MemberTree.h"
#include "Loom/Publisher.h"
#include "Loom/SafeIterator.h"
#include "Loom/SlabNodeAllocator.h"

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
  using Map = std::map<K, V, std::less<K>, SlabNodeAllocator<std::pair<K const, V>>>;
  struct KeyOfMember {
    K const& operator()(typename Map::value_type const& member) const noexcept {
      return member.first;
    }
  };

 public:
  using key_type = K;
  using mapped_type = V;
  using value_type = typename Map::value_type;
  using const_iterator =
      SafeIterator<Collection, typename Map::const_iterator, K, value_type const&>;

  Collection() requires std::is_void_v<R>
  = default;

  template <class Reactor = R>
  requires(!std::is_void_v<Reactor>)
      Collection(Publisher<Reactor>& publisher, void (Reactor::*handler)(K const&))
      : publisher_(&publisher), handler_(handler) {}

  Collection(Collection const&) = delete;
  Collection& operator=(Collection const&) = delete;

  V const* find(K const& key) const {
    auto const it = members_.find(key);
    return it == members_.tree().end() ? nullptr : &it->second;
  }
  V* findMutable(K const& key) {
    auto const it = members_.find(key);
    return it == members_.tree().end() ? nullptr : &it->second;
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
      K const key = members_.tree().begin()->first;
      erase(key);
    }
  }

  const_iterator begin() const { return const_iterator(this, members_.tree().begin()); }
  const_iterator end() const { return const_iterator(this, members_.tree().end()); }

  // For SafeIterator.
  Map const& underlying() const noexcept { return members_.tree(); }
  std::uint64_t removals() const noexcept { return removals_; }
  static K const& keyOf(value_type const& element) { return element.first; }

 private:
  void notify(K const& key) {
    if constexpr (!std::is_void_v<R>) {
      publisher_->notify(handler_, key);
    }
  }

  MemberTree<Map, KeyOfMember> members_;
  std::uint64_t removals_ = 0;
  [[no_unique_address]] typename NotifyTarget<R, K>::Publisher publisher_{};
  [[no_unique_address]] typename NotifyTarget<R, K>::Handler handler_{};
};

}  // namespace Loom
