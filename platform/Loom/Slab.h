#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace Loom {

// Per-type allocation counts that tests and tools can read: how many objects of the type are
// alive now and how many were ever allocated. Trackers live for the process and are found by
// the type's name.
class AllocationTracker {
 public:
  explicit AllocationTracker(std::string_view typeName);
  AllocationTracker(AllocationTracker const&) = delete;
  AllocationTracker& operator=(AllocationTracker const&) = delete;

  std::string const& typeName() const noexcept { return typeName_; }
  std::uint64_t live() const noexcept { return live_; }
  std::uint64_t total() const noexcept { return total_; }

  void allocated() noexcept {
    ++live_;
    ++total_;
  }
  void freed() noexcept { --live_; }

  // The tracker of the named type, or null when no object of it was ever allocated.
  static AllocationTracker const* find(std::string_view typeName);

 private:
  std::string typeName_;
  std::uint64_t live_ = 0;
  std::uint64_t total_ = 0;
};

// Fixed-size object allocator for one record type: storage comes in chunks of many objects
// and freed objects go onto a free list for reuse; chunks are kept for the process. Allocation
// and release take a lock only while the framework runs several threads.
class SlabAllocator {
 public:
  SlabAllocator(std::size_t objectSize, std::size_t alignment, std::string_view typeName);
  SlabAllocator(SlabAllocator const&) = delete;
  SlabAllocator& operator=(SlabAllocator const&) = delete;

  // Raw storage for one object of the type; std::bad_alloc when `size` is not the type's.
  void* allocate(std::size_t size);
  void deallocate(void* object) noexcept;

  AllocationTracker const& tracker() const noexcept { return tracker_; }
  std::size_t chunkCount() const noexcept { return chunks_.size(); }

 private:
  struct FreeSlot {
    FreeSlot* next;
  };
  static constexpr std::size_t kObjectsPerChunk = 256;

  void addChunk();

  std::size_t slotSize_;
  std::size_t alignment_;
  std::vector<std::unique_ptr<std::byte[]>> chunks_;
  FreeSlot* free_ = nullptr;
  AllocationTracker tracker_;
  std::mutex mutex_;
};

// The slab of record type `T`, created on first use.
template <class T>
SlabAllocator& slabFor(std::string_view typeName) {
  static SlabAllocator slab(sizeof(T), alignof(T), typeName);
  return slab;
}

}  // namespace Loom

// Routes a record type's allocations through its slab. Place inside the class body.
#define LOOM_SLAB_ALLOCATED(Type, TypeName)                     \
  static void* operator new(std::size_t size) {                 \
    return ::Loom::slabFor<Type>(TypeName).allocate(size);      \
  }                                                             \
  static void operator delete(void* object) noexcept {          \
    ::Loom::slabFor<Type>(TypeName).deallocate(object);         \
  }                                                             \
  static ::Loom::AllocationTracker const& allocationTracker() { \
    return ::Loom::slabFor<Type>(TypeName).tracker();           \
  }
