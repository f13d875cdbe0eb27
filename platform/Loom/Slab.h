#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "Loom/HugePageChunk.h"

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

// Fixed-size object allocator for one type: objects are cut from chunks of storage in address
// order and freed objects go onto a free list for reuse; chunks are kept for the process.
// Chunks double in size from 256 objects up to 256 KiB; from then on each chunk is a
// HugePageChunk, so that a type with hundreds of thousands of objects takes few page faults and
// TLB entries, while a type with a handful takes one small chunk. Allocation and release take a
// lock only while the framework runs several threads.
class SlabAllocator {
 public:
  SlabAllocator(std::size_t objectSize, std::size_t alignment, std::string_view typeName);
  SlabAllocator(SlabAllocator const&) = delete;
  SlabAllocator& operator=(SlabAllocator const&) = delete;

  // Raw storage for one object of the type; std::bad_alloc when `size` is not the type's.
  void* allocate(std::size_t size);
  void deallocate(void* object) noexcept;

  AllocationTracker const& tracker() const noexcept { return tracker_; }
  std::size_t chunkCount() const noexcept { return chunks_.size() + hugeChunks_.size(); }

 private:
  struct FreeSlot {
    FreeSlot* next;
  };
  static constexpr std::size_t kFirstChunkObjects = 256;
  // Up to here chunks come from the heap in small pages; then come huge-page chunks. A type
  // that grows this far holds at most one huge page it has not filled yet.
  static constexpr std::size_t kLastSmallChunkBytes = std::size_t{256} << 10;
  // The first 2 MiB chunks of a type stay in small pages; from this many on, huge pages.
  static constexpr std::size_t kSmallPageHugeChunks = 4;

  void addChunk();

  std::size_t slotSize_;
  std::size_t alignment_;
  std::size_t nextChunkBytes_;
  std::vector<std::unique_ptr<std::byte[]>> chunks_;
  std::vector<HugePageChunk> hugeChunks_;
  // The part of the newest chunk not handed out yet.
  std::byte* unused_ = nullptr;
  std::byte* unusedEnd_ = nullptr;
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
