#pragma once

#include <compare>
#include <cstddef>
#include <type_traits>
#include <utility>

#include "Loom/Node.h"

namespace Loom {

// Counted reference to a framework node (`T` derives from `Loom::Node`, possibly const).
// Copying takes a use, destruction releases it; the last release destroys the node.
// `Ptr<T>` converts to `Ptr<T const>` and to pointers of base types.
template <class T>
class Ptr {
 public:
  using element_type = T;

  Ptr() noexcept = default;
  Ptr(std::nullptr_t) noexcept {}
  explicit Ptr(T* node) noexcept : node_(node) { take(); }
  Ptr(Ptr const& other) noexcept : node_(other.node_) { take(); }
  Ptr(Ptr&& other) noexcept : node_(std::exchange(other.node_, nullptr)) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U> const& other)
  noexcept : node_(other.get()) { take(); }
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& other)
  noexcept : node_(other.release()) {}
  ~Ptr() { drop(); }

  Ptr& operator=(Ptr const& other) noexcept {
    Ptr(other).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& other) noexcept {
    Ptr(std::move(other)).swap(*this);
    return *this;
  }
  Ptr& operator=(std::nullptr_t) noexcept {
    drop();
    node_ = nullptr;
    return *this;
  }

  T* get() const noexcept { return node_; }
  T* operator->() const noexcept { return node_; }
  T& operator*() const noexcept { return *node_; }
  explicit operator bool() const noexcept { return node_ != nullptr; }

  void swap(Ptr& other) noexcept { std::swap(node_, other.node_); }

  // Gives up the use without releasing it; the caller owns it from now on.
  T* release() noexcept { return std::exchange(node_, nullptr); }

  template <class U>
  bool operator==(Ptr<U> const& other) const noexcept {
    return node_ == other.get();
  }
  bool operator==(std::nullptr_t) const noexcept { return node_ == nullptr; }

 private:
  void take() const noexcept {
    if (node_) {
      node_->newUse();
    }
  }
  void drop() noexcept {
    if (node_) {
      std::exchange(node_, nullptr)->lostUse();
    }
  }

  T* node_ = nullptr;
};

// Creates a node and hands out its first use.
template <class T, class... Args>
Ptr<T> make(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...));
}

// The node as a `T` when it is one, else null.
template <class T, class U>
Ptr<T> dynamicPtrCast(Ptr<U> const& p) noexcept {
  return Ptr<T>(dynamic_cast<T*>(p.get()));
}

}  // namespace Loom
