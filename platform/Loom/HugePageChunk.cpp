#include "Loom/HugePageChunk.h"

#include <sys/mman.h>

#include <cstdint>
#include <new>
#include <utility>

namespace Loom {

HugePageChunk::HugePageChunk(bool huge) {
  // Map twice the size, then give back what lies outside the aligned middle.
  void* const mapped =
      ::mmap(nullptr, 2 * kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) {
    throw std::bad_alloc();
  }
  auto const start = reinterpret_cast<std::uintptr_t>(mapped);
  auto const aligned = (start + kBytes - 1) & ~(std::uintptr_t{kBytes} - 1);
  if (aligned > start) {
    ::munmap(mapped, aligned - start);
  }
  if (auto const tail = start + 2 * kBytes - (aligned + kBytes); tail > 0) {
    ::munmap(reinterpret_cast<void*>(aligned + kBytes), tail);
  }
  base_ = reinterpret_cast<std::byte*>(aligned);
  // Only advice: without transparent huge pages the chunk stays in small pages.
  if (huge) {
    ::madvise(base_, kBytes, MADV_HUGEPAGE);
  }
}

HugePageChunk::~HugePageChunk() {
  if (base_) {
    ::munmap(base_, kBytes);
  }
}

HugePageChunk::HugePageChunk(HugePageChunk&& other) noexcept
    : base_(std::exchange(other.base_, nullptr)) {}

HugePageChunk& HugePageChunk::operator=(HugePageChunk&& other) noexcept {
  if (this != &other) {
    HugePageChunk gone(std::move(*this));
    base_ = std::exchange(other.base_, nullptr);
  }
  return *this;
}

}  // namespace Loom
