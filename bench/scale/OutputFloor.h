#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "host/AgentHarness.h"

namespace Bench {

// What a case is compared with: the output entries of a programmed agent, copied out once, then
// written straight into fresh entities of the same types (the same collections) and erased from
// them again. No state machine runs, nothing is traced, and no reactor is subscribed to the
// fresh entities, so no notification is delivered. The outputs are those the state machine
// writes plus the orientation allocator's answers, which the agent writes in the same call.
//
// The same copied entries also go into a hash floor: per output collection an unordered_map (an
// unordered_set for a set) keyed by the collection's key type, with no order, no notification
// and no framework around it, the cheapest structure a program could keep them in. Its
// containers are not sized ahead, as the entities are not.
//
// `write()`, `erase()`, `writeHashed()` and `eraseHashed()` are what the benchmarks time; the
// copy is not. Single-threaded.
class OutputFloor {
 public:
  explicit OutputFloor(Host::AgentHarness const& harness);
  ~OutputFloor();
  OutputFloor(OutputFloor const&) = delete;
  OutputFloor& operator=(OutputFloor const&) = delete;

  // Entries copied, over all output collections.
  std::size_t rows() const noexcept;

  // Writes every copied entry into the floor's output entities, which are empty: fresh, or
  // emptied by `erase()`.
  void write();
  // Erases every entry from the entities `write()` filled, key by key.
  void erase();
  // The same two into the hash floor's containers.
  void writeHashed();
  void eraseHashed();

  // The copied rows of one output collection, the fresh entity they are written into and the
  // hash floor's container of them.
  class Table {
   public:
    virtual ~Table() = default;
    virtual std::size_t rows() const noexcept = 0;
    virtual void write() = 0;
    virtual void erase() = 0;
    virtual void writeHashed() = 0;
    virtual void eraseHashed() = 0;
  };

 private:
  std::vector<std::unique_ptr<Table>> tables_;
};

}  // namespace Bench
