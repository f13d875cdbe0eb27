#pragma once

#include <cstddef>

namespace Loom {

// One block of memory mapped for a slab: 2 MiB, aligned to 2 MiB and advised for transparent
// huge pages, so that the kernel backs it with one huge page instead of 512 small ones: one page
// fault instead of 512, and one TLB entry. Where huge pages are off it is ordinary memory. Owns
// the mapping and unmaps it when destroyed; moves hand it over.
class HugePageChunk {
 public:
  static constexpr std::size_t kBytes = std::size_t{2} << 20;

  // Maps a chunk, advised for a huge page when `huge`, else left to small pages that are backed
  // as they are touched; throws std::bad_alloc when the system has no memory for it.
  explicit HugePageChunk(bool huge = true);
  ~HugePageChunk();
  HugePageChunk(HugePageChunk&& other) noexcept;
  HugePageChunk& operator=(HugePageChunk&& other) noexcept;
  HugePageChunk(HugePageChunk const&) = delete;
  HugePageChunk& operator=(HugePageChunk const&) = delete;

  std::byte* base() const noexcept { return base_; }

 private:
  std::byte* base_ = nullptr;
};

}  // namespace Loom
