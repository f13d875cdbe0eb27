#pragma once

#include <cstdint>
#include <string_view>

#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"

namespace Fab {

// The HW FEC id request table: the FEC ids for which HW FEC ids are wanted, and the bookkeeping
// with which the requesting agents synchronise with the agent that answers.
//
// This agent only mounts the table (the collection names are checked against the type's attributes
// at mount time); the other agents read and write it. Every write notifies the subscribed reactors
// synchronously, also when the value is unchanged; deleting an absent entry notifies nobody. Runs
// on the agent's scheduler thread; takes no locks.
class FecIdToHwFecIdRequest : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Fab::FecIdToHwFecIdRequest";

  // One handler per notifying member; each gets the changed key.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onAdjSyncIdMap(std::uint32_t const&) {}
    virtual void onSyncRequestsReady(std::uint32_t const&) {}
    virtual void onFecGen(std::uint32_t const&) {}
    virtual void onExtFecGen(std::uint32_t const&) {}
    virtual void onHwFecIdRequest(std::uint64_t const&) {}
    virtual void onObjTupleToFecId(std::uint64_t const&) {}
  };

  static Loom::Ptr<FecIdToHwFecIdRequest> FecIdToHwFecIdRequestIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Per requester: the adjacency sync id it has reached; 0 when absent.
  auto const& adjSyncIdMap() const { return adjSyncIdMap_; }
  std::uint32_t adjSyncIdMap(std::uint32_t k) const { return adjSyncIdMap_.valueOr(k, {}); }
  bool adjSyncIdMapHas(std::uint32_t k) const { return adjSyncIdMap_.has(k); }
  void adjSyncIdMapIs(std::uint32_t k, std::uint32_t v) { adjSyncIdMap_.set(k, v); }
  void adjSyncIdMapDel(std::uint32_t k) { adjSyncIdMap_.erase(k); }
  void adjSyncIdMapDelAll() { adjSyncIdMap_.clear(); }

  // Per requester: whether its requests for the current sync id are complete; false when absent.
  auto const& syncRequestsReady() const { return syncRequestsReady_; }
  bool syncRequestsReady(std::uint32_t k) const { return syncRequestsReady_.valueOr(k, {}); }
  bool syncRequestsReadyHas(std::uint32_t k) const { return syncRequestsReady_.has(k); }
  void syncRequestsReadyIs(std::uint32_t k, bool v) { syncRequestsReady_.set(k, v); }
  void syncRequestsReadyDel(std::uint32_t k) { syncRequestsReady_.erase(k); }
  void syncRequestsReadyDelAll() { syncRequestsReady_.clear(); }

  // Per requester: the generation of its FEC requests; 0 when absent.
  auto const& fecGen() const { return fecGen_; }
  std::uint64_t fecGen(std::uint32_t k) const { return fecGen_.valueOr(k, {}); }
  bool fecGenHas(std::uint32_t k) const { return fecGen_.has(k); }
  void fecGenIs(std::uint32_t k, std::uint64_t v) { fecGen_.set(k, v); }
  void fecGenDel(std::uint32_t k) { fecGen_.erase(k); }
  void fecGenDelAll() { fecGen_.clear(); }

  // Per requester: the generation of its external FEC requests; 0 when absent.
  auto const& extFecGen() const { return extFecGen_; }
  std::uint64_t extFecGen(std::uint32_t k) const { return extFecGen_.valueOr(k, {}); }
  bool extFecGenHas(std::uint32_t k) const { return extFecGen_.has(k); }
  void extFecGenIs(std::uint32_t k, std::uint64_t v) { extFecGen_.set(k, v); }
  void extFecGenDel(std::uint32_t k) { extFecGen_.erase(k); }
  void extFecGenDelAll() { extFecGen_.clear(); }

  // Per FEC id: whether a HW FEC id is requested for it; false when absent.
  auto const& hwFecIdRequest() const { return hwFecIdRequest_; }
  bool hwFecIdRequest(std::uint64_t k) const { return hwFecIdRequest_.valueOr(k, {}); }
  bool hwFecIdRequestHas(std::uint64_t k) const { return hwFecIdRequest_.has(k); }
  void hwFecIdRequestIs(std::uint64_t k, bool v) { hwFecIdRequest_.set(k, v); }
  void hwFecIdRequestDel(std::uint64_t k) { hwFecIdRequest_.erase(k); }
  void hwFecIdRequestDelAll() { hwFecIdRequest_.clear(); }

  // Per object tuple: the FEC id it was given; 0 when absent.
  auto const& objTupleToFecId() const { return objTupleToFecId_; }
  std::uint64_t objTupleToFecId(std::uint64_t k) const { return objTupleToFecId_.valueOr(k, {}); }
  bool objTupleToFecIdHas(std::uint64_t k) const { return objTupleToFecId_.has(k); }
  void objTupleToFecIdIs(std::uint64_t k, std::uint64_t v) { objTupleToFecId_.set(k, v); }
  void objTupleToFecIdDel(std::uint64_t k) { objTupleToFecId_.erase(k); }
  void objTupleToFecIdDelAll() { objTupleToFecId_.clear(); }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  Loom::Collection<std::uint32_t, std::uint32_t, Reactor> adjSyncIdMap_{publisher_,
                                                                        &Reactor::onAdjSyncIdMap};
  Loom::Collection<std::uint32_t, bool, Reactor> syncRequestsReady_{publisher_,
                                                                    &Reactor::onSyncRequestsReady};
  Loom::Collection<std::uint32_t, std::uint64_t, Reactor> fecGen_{publisher_, &Reactor::onFecGen};
  Loom::Collection<std::uint32_t, std::uint64_t, Reactor> extFecGen_{publisher_,
                                                                     &Reactor::onExtFecGen};
  Loom::Collection<std::uint64_t, bool, Reactor> hwFecIdRequest_{publisher_,
                                                                 &Reactor::onHwFecIdRequest};
  Loom::Collection<std::uint64_t, std::uint64_t, Reactor> objTupleToFecId_{
      publisher_, &Reactor::onObjTupleToFecId};
};

}  // namespace Fab
