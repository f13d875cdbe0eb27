#pragma once

#include <atomic>
#include <cstdint>

#include "Loom/Threading.h"

namespace Loom {

class TypeData;

// Bits of a node's flag word. The framework owns the numbering.
enum class NodeFlag : std::uint32_t {
  notificationActive = 1u << 0,  // the node's reactors are subscribed to their publishers
  zombieReactors = 1u << 1,      // the node's dispatchers drop every notification
};

// Base of every framework entity: a use count, a flag word and run-time type data.
//
// A node is created with a use count of zero and is always held through `Loom::Ptr`; when the
// last `Ptr` lets go, `lastUserGone()` runs, which destroys the node. Use counts change
// atomically only while `Loom::Threading::multiThreaded()` is set; otherwise the node belongs to
// one thread. Nodes are neither copied nor moved: their identity is their address.
class Node {
 public:
  Node() = default;
  Node(Node const&) = delete;
  Node& operator=(Node const&) = delete;
  virtual ~Node() = default;

  // The type's registered description (name, attributes, construct-by-name hook).
  virtual TypeData const& typeData() const = 0;

  std::uint32_t useCount() const noexcept { return useCount_.load(std::memory_order_relaxed); }

  bool nodeFlag(NodeFlag flag) const noexcept {
    return (flags_ & static_cast<std::uint32_t>(flag)) != 0;
  }
  void nodeFlagIs(NodeFlag flag, bool on) noexcept {
    auto const bit = static_cast<std::uint32_t>(flag);
    flags_ = on ? (flags_ | bit) : (flags_ & ~bit);
  }

  void newUse() const noexcept {
    if (Threading::multiThreaded()) {
      useCount_.fetch_add(1, std::memory_order_relaxed);
    } else {
      useCount_.store(useCount_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
  }

  void lostUse() const noexcept {
    std::uint32_t left;
    if (Threading::multiThreaded()) {
      left = useCount_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    } else {
      left = useCount_.load(std::memory_order_relaxed) - 1;
      useCount_.store(left, std::memory_order_relaxed);
    }
    if (left == 0) {
      const_cast<Node*>(this)->lastUserGone();
    }
  }

 protected:
  // Runs once, when the last use is released. The default destroys the node; the allocation
  // comes back through the class's own operator delete (the slab for records).
  virtual void lastUserGone() noexcept;

 private:
  mutable std::atomic<std::uint32_t> useCount_{0};
  std::uint32_t flags_ = 0;
};

}  // namespace Loom
