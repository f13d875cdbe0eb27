#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace Loom {

// The reactors subscribed to one entity. `R` is the entity's reactor interface: one virtual
// handler per notifying member, taking the member's key (none for a scalar attribute).
//
// Notification is synchronous: `notify` runs every subscribed reactor before it returns, and a
// reactor's exception propagates to the writer. A reactor may subscribe or unsubscribe (itself
// or others) while a notification is being delivered: one that leaves is not called again, one
// that joins is called from the next notification on. Runs on the thread that writes the entity.
template <class R>
class Publisher {
 public:
  void subscribe(R& reactor) {
    if (std::find(reactors_.begin(), reactors_.end(), &reactor) == reactors_.end()) {
      reactors_.push_back(&reactor);
    }
  }

  void unsubscribe(R& reactor) {
    auto const it = std::find(reactors_.begin(), reactors_.end(), &reactor);
    if (it == reactors_.end()) {
      return;
    }
    if (delivering_ > 0) {
      *it = nullptr;  // compacted when the outermost delivery ends
    } else {
      reactors_.erase(it);
    }
  }

  bool subscribed(R const& reactor) const {
    return std::find(reactors_.begin(), reactors_.end(), &reactor) != reactors_.end();
  }

  std::size_t reactorCount() const {
    return static_cast<std::size_t>(
        std::count_if(reactors_.begin(), reactors_.end(), [](R* r) { return r != nullptr; }));
  }

  template <class... Params, class... Args>
  void notify(void (R::*handler)(Params...), Args const&... args) {
    if (reactors_.empty()) {
      return;
    }
    Delivery delivery(*this);
    auto const count = reactors_.size();
    for (std::size_t i = 0; i < count; ++i) {
      if (R* reactor = reactors_[i]) {
        (reactor->*handler)(args...);
      }
    }
  }

 private:
  struct Delivery {
    explicit Delivery(Publisher& p) : publisher(p) { ++publisher.delivering_; }
    ~Delivery() {
      if (--publisher.delivering_ == 0) {
        std::erase(publisher.reactors_, nullptr);
      }
    }
    Publisher& publisher;
  };

  std::vector<R*> reactors_;
  int delivering_ = 0;
};

}  // namespace Loom
