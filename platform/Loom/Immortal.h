#pragma once

#include <utility>

namespace Loom {

// Holds a process-wide object that is constructed on first use and never destroyed. Tracing
// and allocation must keep working from other objects' static destructors and from threads
// still running at exit, so the registries and allocators behind them must outlive every static
// object. The value sits in a
// union whose destructor does not run it; the operating system reclaims it at exit.
// Threading: construction follows the usual rules of the static that holds the Immortal.
template <class T>
class Immortal {
 public:
  template <class... Args>
  explicit Immortal(Args&&... args) : value_(std::forward<Args>(args)...) {}
  ~Immortal() {}
  Immortal(Immortal const&) = delete;
  Immortal& operator=(Immortal const&) = delete;

  T& get() noexcept { return value_; }

 private:
  union {
    T value_;
  };
};

}  // namespace Loom
