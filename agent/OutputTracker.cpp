#include "agent/OutputTracker.h"

#include <algorithm>

#include "host/PseudowireStatus.h"

namespace VplsAgent {
namespace {

using Hardware::MarlTunnel::EsemConfigKeyVpls;
using Hardware::MarlTunnel::EvecProfileKey;
using Hardware::MarlTunnel::LifProfileOrientationKey;
using Hardware::MarlTunnel::MplsDecapInfoKey;
using Hardware::MarlTunnel::Orientation;

// A reactor on one output entity that hands every notified key to a callback; the subclasses
// below override the entity's one handler.
template <class Entity, class Key>
class KeyWatch : public Entity::Reactor, public OutputSubscription {
 public:
  using Callback = std::function<void(Key const&)>;
  KeyWatch(Entity const& entity, Callback callback)
      : entity_(entity), callback_(std::move(callback)) {
    entity_.publisher().subscribe(*this);
  }
  ~KeyWatch() override { entity_.publisher().unsubscribe(*this); }

 protected:
  void noted(Key const& key) { callback_(key); }

 private:
  Entity const& entity_;
  Callback callback_;
};

struct MplsDecapWatch final : KeyWatch<Hardware::MarlTunnel::MplsDecapConfig, MplsDecapInfoKey> {
  using KeyWatch::KeyWatch;
  void onConfig(MplsDecapInfoKey const& key) override { noted(key); }
};
struct LabelWatch final : KeyWatch<Fab::LabelToPwIntfId, Netcore::MplsLabel> {
  using KeyWatch::KeyWatch;
  void onLabelToPwIntf(Netcore::MplsLabel const& key) override { noted(key); }
};
struct DecapStatusWatch final : KeyWatch<Fab::HwVplsPwDecapStatus, Fab::VplsPwIntfVlanKey> {
  using KeyWatch::KeyWatch;
  void onDecapStatus(Fab::VplsPwIntfVlanKey const& key) override { noted(key); }
};
struct AdditionalIdWatch final : KeyWatch<Fab::HwVplsPwStatus, Netcore::IntfId> {
  using KeyWatch::KeyWatch;
  void onEncapAdditionalId(Netcore::IntfId const& key) override { noted(key); }
};
struct AdditionalDataWatch final : KeyWatch<Fab::VplsPwIntfAdditionalDataMap, Fab::VplsIntfKey> {
  using KeyWatch::KeyWatch;
  void onAdditionalDataMap(Fab::VplsIntfKey const& key) override { noted(key); }
};
struct LpoRequestWatch final
    : KeyWatch<Hardware::MarlTunnel::LifProfileOrientationConfig, LifProfileOrientationKey> {
  using KeyWatch::KeyWatch;
  void onLpoRequest(LifProfileOrientationKey const& key) override { noted(key); }
};
struct LpoResponseWatch final
    : KeyWatch<Hardware::MarlTunnel::LifProfileOrientationStatus, LifProfileOrientationKey> {
  using KeyWatch::KeyWatch;
  void onLpoResponse(LifProfileOrientationKey const& key) override { noted(key); }
};
struct IntfToLpoKeyWatch final
    : KeyWatch<Hardware::MarlTunnel::IntfToLifProfileOrientationKeyMap, Netcore::IntfId> {
  using KeyWatch::KeyWatch;
  void onLifProfileOrientationKey(Netcore::IntfId const& key) override { noted(key); }
};
struct EsemWatch final : KeyWatch<Hardware::MarlTunnel::EsemConfigVpls, EsemConfigKeyVpls> {
  using KeyWatch::KeyWatch;
  void onEsemConfig(EsemConfigKeyVpls const& key) override { noted(key); }
};
struct AppWatch final : KeyWatch<Hardware::MarlTunnel::TagPopPushConfig, Hardware::Marl::VtAppId> {
  using KeyWatch::KeyWatch;
  void onApp(Hardware::Marl::VtAppId const& key) override { noted(key); }
};
struct EvecWatch final : KeyWatch<Hardware::MarlTunnel::EvecProfileRequestDir, EvecProfileKey> {
  using KeyWatch::KeyWatch;
  void onEvecProfileRequest(EvecProfileKey const& key) override { noted(key); }
};

// Each key once, in key order.
template <class Key>
std::vector<Key> distinct(std::vector<Key>& keys) {
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  return std::exchange(keys, {});
}

}  // namespace

OutputTracker::OutputTracker(Host::AgentHarness& harness) : harness_(harness) {
  auto& h = harness_;
  auto const note = [](auto& keys) { return [&keys](auto const& key) { keys.push_back(key); }; };
  subscriptions_.push_back(
      std::make_unique<MplsDecapWatch>(*h.mplsDecapConfig, [this](MplsDecapInfoKey const& key) {
        mplsDecap_.push_back(key);
        noteLabel(key.label());
      }));
  subscriptions_.push_back(std::make_unique<LabelWatch>(*h.decapLabelToPwIntfColl,
                                                        [this](Netcore::MplsLabel const& label) {
                                                          labels_.push_back(label);
                                                          noteLabel(label);
                                                        }));
  subscriptions_.push_back(std::make_unique<DecapStatusWatch>(
      *h.hwVplsPwDecapStatus(), [this](Fab::VplsPwIntfVlanKey const& key) {
        decapStatus_.push_back(key);
        dirtyPws_.insert(key.pwIntfId());
      }));
  subscriptions_.push_back(
      std::make_unique<AdditionalIdWatch>(*h.hwVplsPwStatus, [this](Netcore::IntfId const& pw) {
        additionalIds_.push_back(pw);
        dirtyPws_.insert(pw);
      }));
  subscriptions_.push_back(
      std::make_unique<AdditionalDataWatch>(*h.vplsPwIntfAdditionalDataMap, note(additionalData_)));
  subscriptions_.push_back(
      std::make_unique<LpoRequestWatch>(*h.lifProfileOrientationConfig, note(lpoRequests_)));
  subscriptions_.push_back(std::make_unique<LpoResponseWatch>(
      *h.lifProfileOrientationStatus, [this](LifProfileOrientationKey const& key) {
        lpoResponses_.push_back(key);
        noteOrientation(key);
      }));
  subscriptions_.push_back(std::make_unique<IntfToLpoKeyWatch>(*h.intfToLifProfileOrientationKeyMap,
                                                               note(intfToLpoKeys_)));
  subscriptions_.push_back(std::make_unique<EsemWatch>(*h.esemConfigVpls, note(esem_)));
  subscriptions_.push_back(std::make_unique<AppWatch>(*h.tagPopPushConfig, note(apps_)));
  subscriptions_.push_back(std::make_unique<EvecWatch>(*h.evecProfileRequestDir, note(evec_)));

  for (auto const& [label, pw] : h.decapLabelToPwIntfColl->labelToPwIntf()) {
    labelOwners_[label.value()] = pw;
  }
  for (auto const& [key, answer] : h.lifProfileOrientationStatus->lpoResponse()) {
    answered_[key.pwIntfId()].push_back(key);
  }
}

OutputTracker::~OutputTracker() = default;

void OutputTracker::noteLabel(Netcore::MplsLabel label) {
  auto const& owners = harness_.decapLabelToPwIntfColl->labelToPwIntf();
  auto& owner = labelOwners_[label.value()];
  if (!owner.empty()) {
    dirtyPws_.insert(owner);
  }
  if (auto const* pw = owners.find(label)) {
    owner = *pw;
    dirtyPws_.insert(*pw);
  } else {
    labelOwners_.erase(label.value());
  }
}

void OutputTracker::noteOrientation(LifProfileOrientationKey const& key) {
  auto const pw = key.pwIntfId();
  dirtyPws_.insert(pw);
  auto& keys = answered_[pw];
  auto const it = std::find(keys.begin(), keys.end(), key);
  bool const present = harness_.lifProfileOrientationStatus->lpoResponseHas(key);
  if (present && it == keys.end()) {
    keys.push_back(key);
  } else if (!present && it != keys.end()) {
    keys.erase(it);
    if (keys.empty()) {
      answered_.erase(pw);
    }
  }
}

std::vector<Orientation> OutputTracker::orientationsOf(Netcore::IntfId pw) const {
  std::vector<Orientation> orientations;
  auto const it = answered_.find(pw);
  if (it == answered_.end()) {
    return orientations;
  }
  auto const& answers = harness_.lifProfileOrientationStatus->lpoResponse();
  for (auto const& key : it->second) {
    if (auto const* answer = answers.find(key)) {
      orientations.push_back(answer->orientation());
    }
  }
  return orientations;
}

void OutputTracker::derivedRowsFound(std::unordered_map<Netcore::IntfId, std::string> pwStatuses,
                                     std::optional<DbLink::Fields> smStatus) {
  pwStatuses_ = std::move(pwStatuses);
  smStatus_ = std::move(smStatus);
  allPwsDirty_ = true;
}

void OutputTracker::forgetNotes() {
  mplsDecap_.clear();
  labels_.clear();
  decapStatus_.clear();
  additionalIds_.clear();
  additionalData_.clear();
  lpoRequests_.clear();
  lpoResponses_.clear();
  intfToLpoKeys_.clear();
  esem_.clear();
  apps_.clear();
  evec_.clear();
}

std::vector<DbLink::OutputRow> OutputTracker::take() {
  auto const& h = harness_;
  std::vector<DbLink::OutputRow> rows;
  auto const add = [&](auto& keys, auto const& rowOf) {
    for (auto const& key : distinct(keys)) {
      rows.push_back(rowOf(h, key));
    }
  };
  add(mplsDecap_, DbLink::mplsDecapConfigRow);
  add(labels_, DbLink::labelToPwIntfRow);
  add(decapStatus_, DbLink::decapStatusRow);
  add(additionalIds_, DbLink::encapAdditionalIdRow);
  add(additionalData_, DbLink::additionalDataRow);
  add(lpoRequests_, DbLink::lpoRequestRow);
  add(lpoResponses_, DbLink::lpoResponseRow);
  add(intfToLpoKeys_, DbLink::intfToLpoKeyRow);
  add(esem_, DbLink::esemConfigRow);
  add(apps_, DbLink::tagPopPushAppRow);
  add(evec_, DbLink::evecProfileRequestRow);
  takePseudowireStatuses(rows);
  auto sm = DbLink::smStatusRow(h);
  if (sm.fields != smStatus_) {
    smStatus_ = sm.fields;
    rows.push_back(std::move(sm));
  }
  return rows;
}

void OutputTracker::takePseudowireStatuses(std::vector<DbLink::OutputRow>& rows) {
  if (allPwsDirty_) {
    // Every pseudowire that has a status in the database or could have one now.
    for (auto const& [pw, status] : pwStatuses_) {
      dirtyPws_.insert(pw);
    }
    for (auto const pw : Host::knownPseudowires(harness_)) {
      dirtyPws_.insert(pw);
    }
    allPwsDirty_ = false;
  }
  std::vector<Netcore::IntfId> pws(dirtyPws_.begin(), dirtyPws_.end());
  dirtyPws_.clear();
  std::sort(pws.begin(), pws.end());
  for (auto const pw : pws) {
    std::optional<std::string> status;
    if (!pw.empty() && Host::pseudowireKnown(harness_, pw)) {
      status = Host::pseudowireStatus(harness_, pw, orientationsOf(pw)).words;
    }
    auto const held = pwStatuses_.find(pw);
    if (held == pwStatuses_.end() ? !status : status && held->second == *status) {
      continue;
    }
    if (status) {
      pwStatuses_[pw] = *status;
    } else {
      pwStatuses_.erase(held);
    }
    rows.push_back(DbLink::pwStatusRow(pw, std::move(status)));
  }
}

}  // namespace VplsAgent
