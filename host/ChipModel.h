#pragma once

#include <cstdint>
#include <map>
#include <set>

#include "Hardware/AradIhpLifTable.h"
#include "Hardware/MplsDecapConfig.h"
#include "Hardware/MplsDecapInfoKey.h"
#include "Hardware/SemShadow.h"
#include "Loom/Ptr.h"

namespace Host {

// Plays the agents that turn MPLS decap requests into chip writes, so that the show command
// reads back what the library programmed. Each request of `MplsDecapConfig` becomes table
// shadow entries as it comes and goes:
//   - a normal entry (in-LIF profile 10-14): a VPLS decap SEM entry keyed by type 13, the inner
//     tag (bits 22-33) and the global in-LIF (bits 0-21), on FAP 0, whose payload points at a
//     pseudowire in-LIF row (type 22) carrying the HW FEC id as destination, the VLAN, the
//     in-LIF profile and the global in-LIF;
//   - a standby entry (profile 0): an MPLS decap SEM entry keyed by type 13 and the label
//     (bits 1-20), pointing at an in-LIF row of type 24 with no destination or VLAN;
//   - a VTT2 entry (profile 15) is a VLAN translation entry: it lands in neither decap table.
// LIF indexes are handed out from 1 upwards and reused once freed. Runs on the agent's
// scheduler thread, inside the request's write.
class ChipModel {
 public:
  ChipModel(Loom::Ptr<Hardware::MarlTunnel::MplsDecapConfig const> requests,
            Loom::Ptr<Hardware::Marl::SemShadow> sem,
            Loom::Ptr<Hardware::Marl::AradIhpLifTable> lif);
  ~ChipModel();
  ChipModel(ChipModel const&) = delete;
  ChipModel& operator=(ChipModel const&) = delete;

  // Takes every entry it installed out of the shadows and frees their LIF indexes.
  void removeAll();

  static constexpr std::uint64_t kDecapKeyType = 13;

 private:
  struct Reactor : Hardware::MarlTunnel::MplsDecapConfig::Reactor {
    explicit Reactor(ChipModel& model) : model_(model) {}
    void onConfig(Hardware::MarlTunnel::MplsDecapInfoKey const& key) override;
    ChipModel& model_;
  };
  struct Installed {
    Hardware::Marl::SemShadow::Table table;
    std::uint64_t semKey;
    std::uint32_t lifIndex;
  };

  void install(Hardware::MarlTunnel::MplsDecapInfoKey const& key);
  void remove(Hardware::MarlTunnel::MplsDecapInfoKey const& key);
  std::uint32_t takeLifIndex();

  Loom::Ptr<Hardware::MarlTunnel::MplsDecapConfig const> requests_;
  Loom::Ptr<Hardware::Marl::SemShadow> sem_;
  Loom::Ptr<Hardware::Marl::AradIhpLifTable> lif_;
  std::map<Hardware::MarlTunnel::MplsDecapInfoKey, Installed> installed_;
  std::set<std::uint32_t> freeLifIndexes_;
  std::uint32_t nextLifIndex_ = 1;
  Reactor reactor_{*this};
};

}  // namespace Host
