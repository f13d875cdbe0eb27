#pragma once

#include <cstddef>
#include <memory>
#include <typeinfo>

#include "Loom/Immortal.h"
#include "Loom/Slab.h"

namespace Loom {

// A standard allocator for the members of the framework's collections: the tree allocates its
// nodes one by one, and each comes from the slab of the node type, which packs them without
// per-object headers, reuses freed ones at once and maps large collections in huge pages (see
// SlabAllocator). Anything allocated several at a time comes from the default allocator. The
// slabs are never destroyed, so collections held by static objects can still free their
// members at exit. Stateless: all instances are interchangeable.
template <class T>
class SlabNodeAllocator {
 public:
  using value_type = T;

  SlabNodeAllocator() noexcept = default;
  template <class U>
  SlabNodeAllocator(SlabNodeAllocator<U> const&) noexcept {}

  T* allocate(std::size_t n) {
    if (n == 1) {
      return static_cast<T*>(slab().allocate(sizeof(T)));
    }
    return std::allocator<T>().allocate(n);
  }

  void deallocate(T* object, std::size_t n) noexcept {
    if (n == 1) {
      slab().deallocate(object);
    } else {
      std::allocator<T>().deallocate(object, n);
    }
  }

  template <class U>
  bool operator==(SlabNodeAllocator<U> const&) const noexcept {
    return true;
  }

 private:
  // The tracker of a node type is named by the compiler's name of the type.
  static SlabAllocator& slab() {
    static Immortal<SlabAllocator> nodes(sizeof(T), alignof(T), typeid(T).name());
    return nodes.get();
  }
};

}  // namespace Loom
