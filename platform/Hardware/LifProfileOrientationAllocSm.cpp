#include "Hardware/LifProfileOrientationAllocSm.h"

#include <stdexcept>

#include "Hardware/Jericho2LifProfiles.h"
#include "Hardware/Orientation.h"

namespace Hardware::MarlTunnel {
namespace {

constexpr std::uint32_t kSpokeProfile = 10;
constexpr std::uint32_t kFirstMeshOrientation = 3;  // slot s answers orientation s + 3

}  // namespace

Loom::Ptr<LifProfileOrientationAllocSm>
LifProfileOrientationAllocSm::LifProfileOrientationAllocSmIs(
    Loom::Ptr<LifProfileOrientationConfig const> const& config,
    Loom::Ptr<LifProfileOrientationStatus> const& status, std::uint32_t meshGroups) {
  return Loom::make<LifProfileOrientationAllocSm>(config, status, meshGroups);
}

LifProfileOrientationAllocSm::LifProfileOrientationAllocSm(
    Loom::Ptr<LifProfileOrientationConfig const> config,
    Loom::Ptr<LifProfileOrientationStatus> status, std::uint32_t meshGroups)
    : config_(std::move(config)), status_(std::move(status)), meshGroups_(meshGroups) {
  if (meshGroups_ < 1 || meshGroups_ > kMaxMeshGroups) {
    throw std::invalid_argument("LifProfileOrientationAllocSm: meshGroups must be 1 to 4, not " +
                                std::to_string(meshGroups_));
  }
  if (config_) {
    config_->publisher().subscribe(reactor_);
  }
}

LifProfileOrientationAllocSm::~LifProfileOrientationAllocSm() {
  if (config_) {
    config_->publisher().unsubscribe(reactor_);
  }
}

Loom::TypeData const& LifProfileOrientationAllocSm::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"lifProfileOrientationConfig", Loom::AttributeKind::reference,
           "Hardware::MarlTunnel::LifProfileOrientationConfig"},
          {"lifProfileOrientationStatus", Loom::AttributeKind::reference,
           "Hardware::MarlTunnel::LifProfileOrientationStatus"},
          {"meshGroups", Loom::AttributeKind::scalar, "U32"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 3, typeName);
        return LifProfileOrientationAllocSmIs(
            Loom::argAt<Loom::Ptr<LifProfileOrientationConfig const>>(args, 0, typeName),
            Loom::argAt<Loom::Ptr<LifProfileOrientationStatus>>(args, 1, typeName),
            Loom::argAt<std::uint32_t>(args, 2, typeName));
      });
  return data;
}

std::uint32_t LifProfileOrientationAllocSm::slotOf(VlanAndVplsKey const& group) const {
  auto const it = groups_.find(
      Group{Domain{group.instanceNameHandle(), group.vlanId()}, group.groupNameHandle()});
  return it == groups_.end() ? 0 : it->second.slot;
}

std::size_t LifProfileOrientationAllocSm::DomainHash::operator()(Domain const& d) const noexcept {
  return Loom::hashValue(d.vlanId, d.instanceName.identityHash());
}

std::size_t LifProfileOrientationAllocSm::GroupHash::operator()(Group const& g) const noexcept {
  return Loom::hashCombine(DomainHash()(g.domain), g.groupName.identityHash());
}

void LifProfileOrientationAllocSm::RequestReactor::onLpoRequest(
    LifProfileOrientationKey const& key) {
  if (allocator_.config_->lpoRequestHas(key)) {
    allocator_.answer(key);
  } else {
    allocator_.withdraw(key);
  }
}

LifProfileOrientationAllocSm::Domain LifProfileOrientationAllocSm::domainOf(
    LifProfileOrientationKey const& key) {
  return Domain{key.vlanAndVplsKey().instanceNameHandle(), key.vlanId()};
}

LifProfileOrientationAllocSm::Group LifProfileOrientationAllocSm::groupOf(
    LifProfileOrientationKey const& key) {
  return Group{domainOf(key), key.vlanAndVplsKey().groupNameHandle()};
}

LifProfileAndOrientation LifProfileOrientationAllocSm::meshAnswer(std::uint32_t slot) {
  return LifProfileAndOrientation(
      Marl::Jericho2LifProfiles{kSpokeProfile + slot},
      Orientation{static_cast<std::uint8_t>(slot + kFirstMeshOrientation)});
}

bool LifProfileOrientationAllocSm::answeredWith(LifProfileOrientationKey const& key,
                                                std::uint32_t slot) const {
  auto const* present = status_->lpoResponse().find(key);
  return present && *present == meshAnswer(slot);
}

bool LifProfileOrientationAllocSm::unstray(LifProfileOrientationKey const& key) {
  return !strays_.empty() && strays_.erase(key) > 0;
}

void LifProfileOrientationAllocSm::answer(LifProfileOrientationKey const& key) {
  if (!key.splitHorizon() || key.groupName().empty()) {
    status_->lpoResponseIs(key, LifProfileAndOrientation(Marl::Jericho2LifProfiles{kSpokeProfile},
                                                         Orientation::orientation0));
    return;
  }
  bool const stray = unstray(key);
  auto const group = groupOf(key);
  auto it = groups_.find(group);
  bool held = false;
  if (it == groups_.end()) {
    auto const slot = takeFreeSlot(domainOf(key));
    if (slot == 0) {
      status_->lpoResponseIs(key, LifProfileAndOrientation(Marl::Jericho2LifProfiles::noLifProfile_,
                                                           Orientation::orientationAllocFailed));
      return;
    }
    it = groups_.emplace(group, GroupSlot{slot, 0}).first;
  } else {
    // Requested again while answered: it holds the slot already.
    held = !stray && answeredWith(key, it->second.slot);
  }
  if (!held) {
    ++it->second.holders;
  }
  status_->lpoResponseIs(key, meshAnswer(it->second.slot));
}

void LifProfileOrientationAllocSm::withdraw(LifProfileOrientationKey const& key) {
  // The answer, read before it goes, tells whether the request held its group's slot.
  auto const* present = status_->lpoResponse().find(key);
  bool const wasAnswered = present != nullptr;
  auto const answered = wasAnswered ? *present : LifProfileAndOrientation();
  bool const stray = unstray(key);
  status_->lpoResponseDel(key);
  if (stray || !wasAnswered) {
    return;
  }
  auto const it = groups_.find(groupOf(key));
  if (it == groups_.end() || answered != meshAnswer(it->second.slot) || --it->second.holders != 0) {
    return;
  }
  auto const domain = it->first.domain;
  auto const used = usedSlots_.find(domain);
  used->second &= ~(SlotMask{1} << (it->second.slot - 1));
  if (used->second == 0) {
    usedSlots_.erase(used);
  }
  groups_.erase(it);
}

void LifProfileOrientationAllocSm::takeSlotsBack() {
  groups_.clear();
  usedSlots_.clear();
  strays_.clear();
  for (auto const& [key, answer] : status_->lpoResponse()) {
    std::uint32_t const orientation = toValue(answer.orientation());
    std::uint32_t const slot =
        orientation > kFirstMeshOrientation ? orientation - kFirstMeshOrientation : 0;
    bool const mesh = key.splitHorizon() && !key.groupName().empty() && slot >= 1 &&
                      slot <= meshGroups_ &&
                      Marl::toValue(answer.inLifProfile()) == kSpokeProfile + slot;
    if (!mesh) {
      continue;
    }
    if (!config_ || !config_->lpoRequestHas(key)) {
      strays_.insert(key);
      continue;
    }
    auto const group = groupOf(key);
    auto it = groups_.find(group);
    if (it == groups_.end()) {
      SlotMask& used = usedSlots_[group.domain];
      SlotMask const bit = SlotMask{1} << (slot - 1);
      if ((used & bit) != 0) {
        strays_.insert(key);  // claimed by another group of the domain
        continue;
      }
      used |= bit;
      it = groups_.emplace(group, GroupSlot{slot, 0}).first;
    } else if (it->second.slot != slot) {
      strays_.insert(key);
      continue;
    }
    ++it->second.holders;
  }
}

std::uint32_t LifProfileOrientationAllocSm::takeFreeSlot(Domain const& domain) {
  auto const used = usedSlots_.find(domain);
  SlotMask const taken = used == usedSlots_.end() ? 0 : used->second;
  for (std::uint32_t slot = 1; slot <= meshGroups_; ++slot) {
    SlotMask const bit = SlotMask{1} << (slot - 1);
    if ((taken & bit) == 0) {
      usedSlots_[domain] = taken | bit;
      return slot;
    }
  }
  return 0;
}

namespace {
Loom::TypeRegistration const registration(LifProfileOrientationAllocSm::type());
}

}  // namespace Hardware::MarlTunnel
