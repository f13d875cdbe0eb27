#pragma once

#include <cstdint>
#include <string_view>

#include "Fab/NexthopIndex.h"
#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"

namespace Fab {

// The HW FEC id response table: per FEC id, the HW FEC index (HW FEC id and global in-LIF) that the
// FEC was given in hardware.
//
// Written by the agent that programs the chip; read by this agent to learn where a pseudowire's FEC
// went. Every write notifies the subscribed reactors synchronously, also when the value is
// unchanged; deleting an absent entry notifies nobody. Runs on the agent's scheduler thread; takes
// no locks.
class FecIdToHwFecIdResponse : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Fab::FecIdToHwFecIdResponse";

  // One handler per notifying member; each gets the changed key.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onHwFecIdResponse(std::uint64_t const&) {}
  };

  static Loom::Ptr<FecIdToHwFecIdResponse> FecIdToHwFecIdResponseIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Per FEC id: its HW FEC index; all ones when absent.
  auto const& hwFecIdResponse() const { return hwFecIdResponse_; }
  NexthopIndex hwFecIdResponse(std::uint64_t k) const { return hwFecIdResponse_.valueOr(k, {}); }
  bool hwFecIdResponseHas(std::uint64_t k) const { return hwFecIdResponse_.has(k); }
  void hwFecIdResponseIs(std::uint64_t k, NexthopIndex v) { hwFecIdResponse_.set(k, v); }
  void hwFecIdResponseDel(std::uint64_t k) { hwFecIdResponse_.erase(k); }
  void hwFecIdResponseDelAll() { hwFecIdResponse_.clear(); }

  // True when the table holds no responses at all.
  bool empty() const noexcept { return hwFecIdResponse_.empty(); }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  Loom::Collection<std::uint64_t, NexthopIndex, Reactor> hwFecIdResponse_{
      publisher_, &Reactor::onHwFecIdResponse};
};

}  // namespace Fab
