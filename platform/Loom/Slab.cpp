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
      nextChunkBytes_(slotSize_ * kFirstChunkObjects),
      tracker_(typeName) {}

void* SlabAllocator::allocate(std::size_t size) {
  if (size > slotSize_) {
    throw std::bad_alloc();  // a derived type must bring its own allocator
  }
  MaybeLock lock(mutex_);
  void* object = free_;
  if (free_) {
    free_ = free_->next;
  } else {
    if (unusedEnd_ - unused_ < static_cast<std::ptrdiff_t>(slotSize_)) {
      addChunk();
    }
    object = unused_;
    unused_ += slotSize_;
  }
  tracker_.allocated();
  return object;
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
  // Huge-page chunks are aligned to their size, and so to any object's alignment.
  if (nextChunkBytes_ > kLastSmallChunkBytes && slotSize_ <= HugePageChunk::kBytes &&
      alignment_ <= HugePageChunk::kBytes) {
    // A huge page is resident as a whole once touched: only a type already this large is
    // sure to fill the ones it takes.
    hugeChunks_.emplace_back(hugeChunks_.size() >= kSmallPageHugeChunks);
    unused_ = hugeChunks_.back().base();
    unusedEnd_ = unused_ + HugePageChunk::kBytes;
    return;
  }
  // Over-allocate by one alignment so the first slot can be aligned; left unwritten, so that
  // pages are only touched as slots are handed out.
  auto chunk = std::make_unique_for_overwrite<std::byte[]>(nextChunkBytes_ + alignment_);
  auto const base = reinterpret_cast<std::uintptr_t>(chunk.get());
  unused_ = chunk.get() + ((base + alignment_ - 1) / alignment_ * alignment_ - base);
  unusedEnd_ = unused_ + nextChunkBytes_;
  chunks_.push_back(std::move(chunk));
  nextChunkBytes_ *= 2;
}

}  // namespace Loom
