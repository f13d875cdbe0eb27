#pragma once

#include <cstdint>
#include <functional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "Hardware/LifProfileOrientationConfig.h"
#include "Hardware/LifProfileOrientationKey.h"
#include "Hardware/LifProfileOrientationStatus.h"
#include "Loom/Name.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/String.h"
#include "Loom/TypeData.h"

namespace Hardware::MarlTunnel {

// Allocates split-horizon orientations. Every request written into LifProfileOrientationConfig
// is answered synchronously, inside the write, in LifProfileOrientationStatus:
//   - a request without split horizon or without a group name is a spoke: profile 10,
//     orientation 0;
//   - otherwise the request's group (instance name, VLAN, group name) holds one mesh slot s of
//     its domain (instance name, VLAN): the slot it already has, else the lowest free slot from
//     1 to `meshGroups`; the answer is profile 10 + s, orientation s + 3;
//   - no free slot: profile 0, orientation 8 (failed). Re-requesting a failed key tries again.
// Withdrawing a request removes its answer; a group whose last successful request goes frees
// its slot.
//
// Invariants: a slot is held by exactly one group of its domain; a group holds a slot exactly
// while at least one of its requests is answered with it. Runs on the agent's scheduler thread
// (the thread that writes the requests); takes no locks.
class LifProfileOrientationAllocSm : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::LifProfileOrientationAllocSm";
  static constexpr std::uint32_t kMaxMeshGroups = 4;

  static Loom::Ptr<LifProfileOrientationAllocSm> LifProfileOrientationAllocSmIs(
      Loom::Ptr<LifProfileOrientationConfig const> const& config,
      Loom::Ptr<LifProfileOrientationStatus> const& status, std::uint32_t meshGroups = 4);

  LifProfileOrientationAllocSm(Loom::Ptr<LifProfileOrientationConfig const> config,
                               Loom::Ptr<LifProfileOrientationStatus> status,
                               std::uint32_t meshGroups);
  ~LifProfileOrientationAllocSm() override;

  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }

  // The agent's start-up synchronisation is over; counted, nothing else to do here.
  void handleStartupSyncDone() { ++startupSyncDoneCalls_; }
  std::uint32_t startupSyncDoneCalls() const noexcept { return startupSyncDoneCalls_; }
  // An allocator that starts over shared state left by an earlier one continues its count.
  void startupSyncDoneCallsIs(std::uint32_t calls) noexcept { startupSyncDoneCalls_ = calls; }

  // Starting over shared state: forgets what it holds and takes back the slots of the answers
  // present whose request is present too. A mesh answer (profile 10 + s, orientation s + 3, s
  // within meshGroups) makes its group hold slot s; where two groups of a domain claim one slot,
  // the first in key order keeps it and the other's requests hold nothing.
  void takeSlotsBack();

  std::uint32_t meshGroups() const noexcept { return meshGroups_; }
  // The mesh slot of a group, 0 when it holds none.
  std::uint32_t slotOf(VlanAndVplsKey const& group) const;

 private:
  class RequestReactor : public LifProfileOrientationConfig::Reactor {
   public:
    explicit RequestReactor(LifProfileOrientationAllocSm& allocator) : allocator_(allocator) {}
    void onLpoRequest(LifProfileOrientationKey const& key) override;

   private:
    LifProfileOrientationAllocSm& allocator_;
  };

  // A split-horizon domain (instance name, VLAN) and a group of it (with the group name). The
  // allocator only looks them up, so they are hashed: there are as many groups as VLANs that
  // carry split-horizon groups, and every request looks its group up.
  struct Domain {
    Loom::Name instanceName;
    std::uint16_t vlanId = 0;
    bool operator==(Domain const&) const = default;
  };
  struct Group {
    Domain domain;
    Loom::Name groupName;
    bool operator==(Group const&) const = default;
  };
  struct DomainHash {
    std::size_t operator()(Domain const& d) const noexcept;
  };
  struct GroupHash {
    std::size_t operator()(Group const& g) const noexcept;
  };
  // A group's slot and how many requests are answered with it. A request holds the slot exactly
  // when its answer is the slot's answer, unless it is a stray (see takeSlotsBack), so the
  // requests themselves need not be kept.
  struct GroupSlot {
    std::uint32_t slot = 0;
    std::uint32_t holders = 0;
  };
  // Bit s - 1 stands for slot s.
  using SlotMask = std::uint32_t;

  static Domain domainOf(LifProfileOrientationKey const& key);
  static Group groupOf(LifProfileOrientationKey const& key);

  void answer(LifProfileOrientationKey const& key);
  void withdraw(LifProfileOrientationKey const& key);
  static LifProfileAndOrientation meshAnswer(std::uint32_t slot);
  // Whether the request's present answer is `slot`'s answer: then it holds the slot.
  bool answeredWith(LifProfileOrientationKey const& key, std::uint32_t slot) const;
  // Takes the request off the strays; false when it was none.
  bool unstray(LifProfileOrientationKey const& key);
  std::uint32_t takeFreeSlot(Domain const& domain);

  Loom::Ptr<LifProfileOrientationConfig const> config_;
  Loom::Ptr<LifProfileOrientationStatus> status_;
  std::uint32_t meshGroups_;
  std::uint32_t startupSyncDoneCalls_ = 0;
  std::unordered_map<Group, GroupSlot, GroupHash> groups_;
  std::unordered_map<Domain, SlotMask, DomainHash> usedSlots_;
  // Requests found at start-up with a mesh answer they do not hold (their group holds another
  // slot, or none, or their request is absent): their answer stays until they are requested
  // again or withdrawn, and it must not count as holding. Empty unless the state found was
  // inconsistent.
  std::unordered_set<LifProfileOrientationKey> strays_;
  RequestReactor reactor_{*this};
};

}  // namespace Hardware::MarlTunnel
