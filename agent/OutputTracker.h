#pragma once

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Fab/HwVplsPwDecapStatus.h"
#include "Fab/HwVplsPwStatus.h"
#include "Fab/LabelToPwIntfId.h"
#include "Fab/VplsPwIntfAdditionalDataMap.h"
#include "Hardware/EsemConfigVpls.h"
#include "Hardware/EvecProfileRequestDir.h"
#include "Hardware/IntfToLifProfileOrientationKeyMap.h"
#include "Hardware/LifProfileOrientationConfig.h"
#include "Hardware/LifProfileOrientationStatus.h"
#include "Hardware/MplsDecapConfig.h"
#include "Hardware/TagPopPushConfig.h"
#include "agent/HeldDigests.h"
#include "dblink/KeyLayout.h"
#include "host/AgentHarness.h"
#include "host/OutputTable.h"

namespace VplsAgent {

// One reactor subscribed to an output entity; it unsubscribes when it goes.
class OutputSubscription {
 public:
  virtual ~OutputSubscription() = default;
};

// Collects what changes in the agent's outputs between two writes to the state database: it
// watches every output table of a running harness (host/OutputTable.h), which notes each
// notified key, and it notes the pseudowires whose status may have changed. take() turns the notes
// into rows (the element's current hash, or none for an element that is gone) and forgets them.
//
// It also keeps what the database holds of the derived rows it writes itself: the pseudowire
// statuses and the state-machine status, so that those are only written when they change.
//
// Invariants: attached to exactly one running harness from attach() to its destruction; the
// harness's decap status must be the running wrapper's. Runs on the agent's scheduler thread.
class OutputTracker {
 public:
  explicit OutputTracker(Host::AgentHarness& harness);
  ~OutputTracker();
  OutputTracker(OutputTracker const&) = delete;
  OutputTracker& operator=(OutputTracker const&) = delete;

  // A pseudowire an input op named; or every pseudowire (a change that concerns them all).
  void pseudowireTouched(Netcore::IntfId pw) { dirtyPws_.insert(pw); }
  void allPseudowiresTouched() { allPwsDirty_ = true; }

  // What the database holds of the pseudowire statuses, as read at (re)synchronisation, after
  // every other output row (the state-machine status among them) has been written. Marks every
  // pseudowire touched.
  void derivedRowsFound(std::unordered_map<Netcore::IntfId, DbLink::Fields> pwStatuses);

  // Another client wrote the status row `key`: it is taken as not held, so that take() writes
  // it again. False when the key names no pseudowire (it is not the agent's to keep).
  bool statusRowLost(std::string const& key);

  // Forgets the keys noted so far (a full comparison with the database has covered them).
  void forgetNotes();
  // What the database holds of the output elements' rows: after a full comparison, forgotten
  // (with room for `keys`) and then told each row held; after another client's write, the row
  // written back (or null for a key deleted). take() leaves out the rows that the database
  // holds already.
  void forgetHeld(std::size_t keys) { held_.clear(keys); }
  void held(std::string_view key, DbLink::Fields const* fields) { held_.hold(key, fields); }

  // The rows to write since the last take(): changed output elements, then the pseudowire
  // statuses and the state-machine status, each only when it differs from what the database
  // holds (which it then is taken to hold).
  std::vector<Host::RowUpdate> take();

 private:
  void noteLabel(Netcore::MplsLabel label);
  void noteOrientation(Hardware::MarlTunnel::LifProfileOrientationKey const& key);
  void takePseudowireStatuses(std::vector<Host::RowUpdate>& rows);
  std::vector<Hardware::MarlTunnel::Orientation> orientationsOf(Netcore::IntfId pw) const;
  // The pseudowires whose entries the chip installed, moved or removed: their status may say
  // that they wait for it.
  void noteChipChanges(std::vector<Host::RowUpdate> const& rows);
  // The state-machine status as a row.
  Host::RowUpdate smStatusRow() const;

  Host::AgentHarness& harness_;
  // The keys notified since the last take(), one watch per output table whose entity notifies.
  std::vector<std::unique_ptr<Host::TableWatch>> watches_;
  // The state-machine status table, whose row is compared at each take().
  Host::OutputTable const* smStatusTable_ = nullptr;

  std::unordered_set<Netcore::IntfId> dirtyPws_;
  bool allPwsDirty_ = true;
  // The pseudowire each decap label was last seen to belong to, so that a label that moves
  // touches both pseudowires.
  std::unordered_map<std::uint32_t, Netcore::IntfId> labelOwners_;
  // The orientation answers per pseudowire, for its status without a walk of every answer.
  std::unordered_map<Netcore::IntfId, std::vector<Hardware::MarlTunnel::LifProfileOrientationKey>>
      answered_;
  // What the database holds of the output elements (their digests) and of the derived rows.
  HeldDigests held_;
  std::unordered_map<Netcore::IntfId, DbLink::Fields> pwStatuses_;
  std::optional<DbLink::Fields> smStatus_;
  // The subscriptions that follow what the pseudowire statuses depend on.
  std::vector<std::unique_ptr<OutputSubscription>> subscriptions_;
};

}  // namespace VplsAgent
