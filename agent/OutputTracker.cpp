#include "agent/OutputTracker.h"

#include <algorithm>

#include "host/PseudowireStatus.h"

namespace VplsAgent {
namespace {

using DbLink::Fields;
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
struct LpoResponseWatch final
    : KeyWatch<Hardware::MarlTunnel::LifProfileOrientationStatus, LifProfileOrientationKey> {
  using KeyWatch::KeyWatch;
  void onLpoResponse(LifProfileOrientationKey const& key) override { noted(key); }
};

}  // namespace

OutputTracker::OutputTracker(Host::AgentHarness& harness) : harness_(harness) {
  auto& h = harness_;
  for (auto const* table : Host::outputTables()) {
    if (auto watch = table->watch(h)) {
      watches_.push_back(std::move(watch));
    } else {
      smStatusTable_ = table;
    }
  }
  subscriptions_.push_back(std::make_unique<MplsDecapWatch>(
      *h.mplsDecapConfig, [this](MplsDecapInfoKey const& key) { noteLabel(key.label()); }));
  subscriptions_.push_back(std::make_unique<LabelWatch>(
      *h.decapLabelToPwIntfColl, [this](Netcore::MplsLabel const& label) { noteLabel(label); }));
  subscriptions_.push_back(std::make_unique<DecapStatusWatch>(
      *h.hwVplsPwDecapStatus(),
      [this](Fab::VplsPwIntfVlanKey const& key) { dirtyPws_.insert(key.pwIntfId()); }));
  subscriptions_.push_back(std::make_unique<AdditionalIdWatch>(
      *h.hwVplsPwStatus, [this](Netcore::IntfId const& pw) { dirtyPws_.insert(pw); }));
  subscriptions_.push_back(std::make_unique<LpoResponseWatch>(
      *h.lifProfileOrientationStatus,
      [this](LifProfileOrientationKey const& key) { noteOrientation(key); }));

  for (auto const& [label, pw] : h.decapLabelToPwIntfColl->labelToPwIntf()) {
    labelOwners_[label.value()] = pw;
  }
  for (auto const& [key, answer] : h.lifProfileOrientationStatus->lpoResponse()) {
    answered_[key.pwIntfId()].push_back(key);
  }
}

OutputTracker::~OutputTracker() = default;

void OutputTracker::noteChipChanges(std::vector<Host::RowUpdate> const& rows) {
  std::string const prefix = std::string(DbLink::kChipDecapEntry) + "|";
  for (auto const& row : rows) {
    if (!row.key.starts_with(prefix)) {
      continue;
    }
    auto const segments = DbLink::splitKey(row.key);
    if (auto const label = DbLink::readNumber(segments.at(1), Netcore::MplsLabel::kMaxLabel)) {
      if (auto const* pw = harness_.decapLabelToPwIntfColl->labelToPwIntf().find(
              Netcore::MplsLabel(static_cast<std::uint32_t>(*label)))) {
        dirtyPws_.insert(*pw);
      }
    }
  }
}

Host::RowUpdate OutputTracker::smStatusRow() const {
  Host::RowUpdate row;
  smStatusTable_->forEachRow(harness_, [&](std::string&& key, Fields&& fields) {
    row = Host::RowUpdate{std::move(key), std::move(fields)};
  });
  return row;
}

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

void OutputTracker::derivedRowsFound(std::unordered_map<Netcore::IntfId, Fields> pwStatuses) {
  pwStatuses_ = std::move(pwStatuses);
  smStatus_ = smStatusRow().fields;
  allPwsDirty_ = true;
}

bool OutputTracker::statusRowLost(std::string const& key) {
  auto const segments = DbLink::splitKey(key);
  try {
    if (segments.size() == 2) {
      auto const pw = Netcore::IntfId(segments[1]);
      pwStatuses_[pw] = Fields{};  // matches no status: written again, or deleted
      dirtyPws_.insert(pw);
      return true;
    }
  } catch (std::exception const&) {
  }
  return false;
}

void OutputTracker::forgetNotes() {
  for (auto& watch : watches_) {
    watch->forget();
  }
}

std::vector<Host::RowUpdate> OutputTracker::take() {
  std::vector<Host::RowUpdate> rows;
  for (auto& watch : watches_) {
    watch->take(rows);
  }
  noteChipChanges(rows);
  std::erase_if(rows, [this](Host::RowUpdate const& row) {
    return !held_.changes(row.key, row.fields ? &*row.fields : nullptr);
  });
  takePseudowireStatuses(rows);
  auto sm = smStatusRow();
  if (sm.fields != smStatus_) {
    smStatus_ = sm.fields;
    rows.push_back(std::move(sm));
  }
  return rows;
}

void OutputTracker::takePseudowireStatuses(std::vector<Host::RowUpdate>& rows) {
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
    std::optional<Fields> status;
    if (!pw.empty() && Host::pseudowireKnown(harness_, pw)) {
      auto const now = Host::pseudowireStatus(harness_, pw, orientationsOf(pw));
      status = Fields{{std::string(DbLink::kStatusField), now.words},
                      {std::string(DbLink::kCodeField), std::string(Host::codeName(now.code))}};
    }
    auto const held = pwStatuses_.find(pw);
    if (held == pwStatuses_.end() ? !status : status && DbLink::sameFields(held->second, *status)) {
      continue;
    }
    if (status) {
      pwStatuses_[pw] = *status;
    } else {
      pwStatuses_.erase(held);
    }
    Host::RowUpdate row{DbLink::joinKey({DbLink::kPwStatus, pw.toString()}), std::move(status)};
    rows.push_back(std::move(row));
  }
}

}  // namespace VplsAgent
