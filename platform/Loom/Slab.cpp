#include "Loom/Slab.h"

#include <map>
#include <new>

#include "Loom/Threading.h"

namespace Loom {
namespace {

std::map<std::string, AllocationTracker const*, std::less<>>& trackers() {
  static std::map<std::string, AllocationTracker const*, std::less<>> all;
  return all;
}

std::mutex& trackersMutex() {
  static std::mutex m;
  return m;
}

// Takes the slab's lock only while several threads run.
class MaybeLock {
 public:
  explicit MaybeLock(std::mutex& m) : mutex_(Threading::multiThreaded() ? &m : nullptr) {
    if (mutex_) {
      mutex_->lock();
    }
  }
  ~MaybeLock() {
    if (mutex_) {
      mutex_->unlock();
    }
  }
  MaybeLock(MaybeLock const&) = delete;
  MaybeLock& operator=(MaybeLock const&) = delete;

 private:
  std::mutex* mutex_;
};

}  // namespace

AllocationTracker::AllocationTracker(std::string_view typeName) : typeName_(typeName) {
  std::lock_guard lock(trackersMutex());
  trackers()[typeName_] = this;
}

AllocationTracker const* AllocationTracker::find(std::string_view typeName) {
  std::lock_guard lock(trackersMutex());
  auto const it = trackers().find(typeName);
  return it == trackers().end() ? nullptr : it->second;
}

SlabAllocator::SlabAllocator(std::size_t objectSize, std::size_t alignment,
                             std::string_view typeName)
    : slotSize_(((std::max(objectSize, sizeof(FreeSlot)) + alignment - 1) / alignment) * alignment),
      alignment_(alignment),
      tracker_(typeName) {}

void* SlabAllocator::allocate(std::size_t size) {
  if (size > slotSize_) {
    throw std::bad_alloc();  // a derived type must bring its own allocator
  }
  MaybeLock lock(mutex_);
  if (!free_) {
    addChunk();
  }
  FreeSlot* slot = free_;
  free_ = slot->next;
  tracker_.allocated();
  return slot;
}

void SlabAllocator::deallocate(void* object) noexcept {
  if (!object) {
    return;
  }
  MaybeLock lock(mutex_);
  auto* slot = static_cast<FreeSlot*>(object);
  slot->next = free_;
  free_ = slot;
  tracker_.freed();
}

void SlabAllocator::addChunk() {
  // Over-allocate by one alignment so the first slot can be aligned.
  auto chunk = std::make_unique<std::byte[]>(slotSize_ * kObjectsPerChunk + alignment_);
  auto base = reinterpret_cast<std::uintptr_t>(chunk.get());
  base = (base + alignment_ - 1) / alignment_ * alignment_;
  for (std::size_t i = kObjectsPerChunk; i-- > 0;) {
    auto* slot = reinterpret_cast<FreeSlot*>(base + i * slotSize_);
    slot->next = free_;
    free_ = slot;
  }
  chunks_.push_back(std::move(chunk));
}

}  // namespace Loom
