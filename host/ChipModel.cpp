#include "host/ChipModel.h"

#include <stdexcept>

namespace Host {

using Hardware::Marl::Jericho2LifProfiles;
using Hardware::Marl::SemShadow;
using Hardware::MarlTunnel::MplsDecapInfoKey;

ChipModel::ChipModel(Loom::Ptr<Hardware::MarlTunnel::MplsDecapConfig const> requests,
                     Loom::Ptr<SemShadow> sem, Loom::Ptr<Hardware::Marl::AradIhpLifTable> lif)
    : requests_(std::move(requests)), sem_(std::move(sem)), lif_(std::move(lif)) {
  for (auto const& [key, info] : requests_->config()) {
    install(key);
  }
  requests_->publisher().subscribe(reactor_);
}

ChipModel::~ChipModel() {
  requests_->publisher().unsubscribe(reactor_);
}

void ChipModel::removeAll() {
  while (!installed_.empty()) {
    remove(installed_.begin()->first);
  }
}

void ChipModel::Reactor::onConfig(MplsDecapInfoKey const& key) {
  // An overwrite re-installs; the LIF index is handed out again.
  model_.remove(key);
  if (model_.requests_->configHas(key)) {
    model_.install(key);
  }
}

void ChipModel::install(MplsDecapInfoKey const& key) {
  auto const info = requests_->config(key);
  auto const profile = info.inLifProfile();
  auto const typeBits = kDecapKeyType << SemShadow::kTypeShift;
  if (profile == Jericho2LifProfiles::noLifProfile_) {
    auto const lifIndex = takeLifIndex();
    auto const semKey = typeBits | std::uint64_t{key.label().value()} << 1;
    lif_->lifEntryIs(lifIndex, Hardware::Marl::AradLifPweToP2p().entry(
                                   Hardware::Marl::AradIhpLifEntry::kTypePweToMp));
    sem_->entryIs(SemShadow::Table::mplsDecap, semKey, 1, std::uint64_t{lifIndex} << 4);
    installed_[key] = {SemShadow::Table::mplsDecap, semKey, lifIndex};
    return;
  }
  if (profile < Jericho2LifProfiles::vplsSpokeInLifProfile_ ||
      profile > Jericho2LifProfiles::vplsMeshInLifProfile4_) {
    return;  // not a decap entry (the VTT2 entry)
  }
  auto const lifIndex = takeLifIndex();
  auto const semKey =
      typeBits | std::uint64_t{key.innerDot1QTag().value()} << 22 | (info.globalInLif() & 0x3fffff);
  lif_->lifEntryIs(lifIndex,
                   Hardware::Marl::AradLifPweToP2p()
                       .destinationIs(static_cast<std::uint32_t>(info.hwFecId()))
                       .vlanIs(info.vlanId())
                       .inLifProfileIs(static_cast<std::uint8_t>(Hardware::Marl::toValue(profile)))
                       .globalInLifIs(info.globalInLif())
                       .entry());
  sem_->entryIs(SemShadow::Table::vplsDecap, semKey, 1, std::uint64_t{lifIndex} << 4);
  installed_[key] = {SemShadow::Table::vplsDecap, semKey, lifIndex};
}

void ChipModel::remove(MplsDecapInfoKey const& key) {
  auto const it = installed_.find(key);
  if (it == installed_.end()) {
    return;
  }
  sem_->entryDel(it->second.table, it->second.semKey);
  lif_->lifEntryDel(it->second.lifIndex);
  freeLifIndexes_.insert(it->second.lifIndex);
  installed_.erase(it);
}

std::uint32_t ChipModel::takeLifIndex() {
  if (!freeLifIndexes_.empty()) {
    auto const index = *freeLifIndexes_.begin();
    freeLifIndexes_.erase(freeLifIndexes_.begin());
    return index;
  }
  if (nextLifIndex_ > Hardware::Marl::AradIhpLifTable::kMaxLifIndex) {
    throw std::length_error("chip model: in-LIF table full");
  }
  return nextLifIndex_++;
}

}  // namespace Host
