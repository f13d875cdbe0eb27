#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "Hardware/AradIhpLifTable.h"
#include "Hardware/MplsDecapConfig.h"
#include "Hardware/MplsDecapInfo.h"
#include "Hardware/MplsDecapInfoKey.h"
#include "Hardware/SemShadow.h"
#include "Loom/Collection.h"
#include "Loom/Ptr.h"
#include "Loom/Set.h"
#include "chip/InLifRow.h"
#include "chip/InLifRowPool.h"

namespace Chip {

// Programs the chip's decap tables from the library's MPLS decap requests (`MplsDecapConfig`),
// as the chip's own agents do: each request becomes an exact-match (SEM) entry and the in-LIF
// row its payload points at, in the table shadows that the show command reads.
//   - normal entry (in-LIF profile 10-14): a VPLS decap SEM entry keyed by type 13 (bits 42 and
//     up), the inner tag (bits 22-33) and the global in-LIF (bits 0-21); its row is of type 22
//     and carries the HW FEC id as destination, the VLAN, the in-LIF profile and the global
//     in-LIF;
//   - standby entry (profile 0): an MPLS decap SEM entry keyed by type 13 and the label
//     (bits 1-20); its row is of type 24 with no destination or VLAN;
//   - any other profile (15, the VTT2 entry) is not a decap entry: never installed, never
//     waiting.
// Every SEM entry is installed on FAP 0 with the payload `row << 4`.
//
// Batches: the reactor on the requests only notes the changed key, and nothing reaches the
// shadows until the host calls commit() (once per event, or once per transaction), which applies
// the net change of the keys noted since the last commit:
//   1. installed entries whose request is gone, or is no longer a decap entry, are removed and
//      their rows freed; then installed entries whose request (the `MplsDecapInfo`) differs are
//      updated in place, keeping their row, in ascending key order; an entry whose SEM key
//      changes to one another entry holds is taken out and waits; an installed entry whose
//      request is the same is left alone, so a delete and an add within one batch touch nothing;
//      a noted decap request that is not installed waits;
//   2. waiting requests are installed in ascending key order, each taking the lowest free row,
//      while rows are free. A request whose SEM key another entry holds is passed over and
//      keeps waiting. Key order, not arrival order: two hosts that apply the same batches to the
//      same state end with the same rows.
// A full table is a state, not an error: the requests that find no row wait until rows free.
//
// Persistence: takeChanged() lists the requests whose installed entry was created, moved,
// updated or removed since the last call, for a host that keeps the chip's tables across
// restarts of the agent; restore() hands back what such a host saved, before the first commit.
//
// Invariants: every installed entry holds one row of the pool and one SEM key of its table, and
// no two installed entries share either; the shadows hold, for each installed entry, its SEM
// entry and its row, as `installed()` describes them; a request key is never both installed and
// waiting; after a commit, every waiting key is a present decap request. Nothing here raises
// into the library's write, and commit() and restore() raise nothing of their own.
//
// Threading: one thread, the agent's scheduler thread, which writes the requests and calls
// commit(); takes no locks. Destroying the programmer leaves the shadows as they are, as a
// chip keeps its tables when its agent goes.
class DecapProgrammer {
 public:
  using Key = Hardware::MarlTunnel::MplsDecapInfoKey;
  using Info = Hardware::MarlTunnel::MplsDecapInfo;
  using SemTable = Hardware::Marl::SemShadow::Table;

  // An installed entry: where the chip holds it and the request it was installed from.
  struct Installed {
    SemTable table = SemTable::vplsDecap;
    std::uint64_t semKey = 0;
    InLifRow row;
    Info info;
  };

  // An installed entry as a host saved it: the request key, the row and the request.
  struct Saved {
    Key key;
    InLifRow row;
    Info info;
  };

  static constexpr std::uint64_t kDecapKeyType = 13;
  static constexpr Hardware::Marl::SemShadow::FapMask kFapMask = 1;

  // Notes every present request for the first commit. `capacity` rows, 1 to capacity, at most
  // the chip's 131071 (a larger value is taken as 131071).
  DecapProgrammer(Loom::Ptr<Hardware::MarlTunnel::MplsDecapConfig const> requests,
                  Loom::Ptr<Hardware::Marl::SemShadow> sem,
                  Loom::Ptr<Hardware::Marl::AradIhpLifTable> lif,
                  std::uint32_t capacity = Hardware::Marl::AradIhpLifTable::kMaxLifIndex);
  ~DecapProgrammer();
  DecapProgrammer(DecapProgrammer const&) = delete;
  DecapProgrammer& operator=(DecapProgrammer const&) = delete;

  // Rebuilds the shadows from entries a host saved, at their rows, and notes every saved key for
  // the next commit, which then applies only the difference against the present requests.
  // Accepted once, before the first commit. A saved entry is left out when its row is outside
  // 1 to capacity, it is not a decap entry, or it shares its key, its row or its SEM key with
  // another saved entry (all those sharing are left out: which of them the chip held is unknown).
  // Returns one line per entry left out, in key order, or one line when refused.
  std::vector<std::string> restore(std::vector<Saved> saved);

  // Applies the net change of the requests noted since the last commit (see the class comment).
  void commit();

  // Takes every installed entry out of the shadows and frees its row (each a change), drops the
  // waiting list, and notes every present request, so that a later commit installs them again.
  void removeAll();

  // Whether the request waits for a row (or for its SEM key), as of the last commit.
  bool waiting(Key const& key) const { return waiting_.has(key); }
  std::size_t waitingCount() const noexcept { return waiting_.size(); }
  // The installed entries by request key, in key order.
  Loom::Collection<Key, Installed> const& installed() const noexcept { return installed_; }
  std::uint32_t capacity() const noexcept { return rows_.capacity(); }
  std::uint32_t freeRows() const noexcept { return rows_.freeCount(); }

  // The request keys whose installed entry was created, moved, updated or removed since the last
  // call, each once, in key order: installed() has the entry now, or it is gone.
  std::vector<Key> takeChanged();

 private:
  struct Reactor : Hardware::MarlTunnel::MplsDecapConfig::Reactor {
    explicit Reactor(DecapProgrammer& programmer) : programmer_(programmer) {}
    void onConfig(Key const& key) override;
    DecapProgrammer& programmer_;
  };

  // Where a decap request goes: its SEM table and key, and the contents of its row.
  struct Placement {
    SemTable table;
    std::uint64_t semKey;
    Hardware::Marl::AradIhpLifEntry rowEntry;
  };
  static std::optional<Placement> placement(Key const& key, Info const& info);
  // One number per SEM key of either table.
  static std::uint64_t semSlot(SemTable table, std::uint64_t semKey) noexcept;

  void noteAllRequests();
  // Installs a waiting request at the lowest free row; false when its SEM key is held.
  bool install(Key const& key, Info const& info, Placement const& where);
  void update(Key const& key, Installed& entry, Info const& info);
  void uninstall(Key const& key, Installed const& entry);
  void write(InLifRow row, Placement const& where);

  // Shared with the library (read only), the show command and the chip's other agents.
  Loom::Ptr<Hardware::MarlTunnel::MplsDecapConfig const> requests_;
  Loom::Ptr<Hardware::Marl::SemShadow> sem_;
  Loom::Ptr<Hardware::Marl::AradIhpLifTable> lif_;
  // Owned: the table's rows and which are free.
  InLifRowPool rows_;
  // Owned: the installed entries by request key.
  Loom::Collection<Key, Installed> installed_;
  // Owned: the SEM keys the installed entries hold (semSlot()).
  std::unordered_set<std::uint64_t> heldSemKeys_;
  // Owned: the decap requests without an entry, in key order.
  Loom::Set<Key> waiting_;
  // Owned: the keys written since the last commit, with repeats, in arrival order.
  std::vector<Key> noted_;
  // Owned: the keys whose installed entry changed since takeChanged(), with repeats.
  std::vector<Key> changed_;
  // Whether commit() ran; restore() is refused from then on.
  bool committed_ = false;
  Reactor reactor_{*this};
};

}  // namespace Chip
