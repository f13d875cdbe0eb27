// The sequences of input changes that the randomized test and the sequence fuzzer share: their
// generator, the state machine's invariants and the check after everything is removed.
//
// Universe: pseudowires 1 to 3, VLANs 10, 20 and 30, two labels per pseudowire (a label
// terminates one pseudowire), normalised tags that never equal a VLAN id and differ between the
// VLANs of a pseudowire (no two entries share a key; only VLAN 30 may be untagged), two FEC
// ids, configurations over two instances, three groups or none, split horizon on or off,
// standby and VLAN-aware variants, and in half of the sequences VXLAN and VXLAN DCI switched on
// and off. The allocator has one mesh slot per domain (so allocations fail) or three (so VXLAN
// refuses orientation 6).
//
// A step is chosen first among the steps that are valid now (weighted: writes outweigh
// removals, so that pseudowires get programmed), then its values, so that every choice the
// sequence makes is one that matters.

#include "DecapSequence.h"

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "DecapSmRig.h"

namespace Hardware::MarlTunnel::test {
namespace {

using Marl::Jericho2LifProfiles;

constexpr std::uint32_t kPws[] = {1, 2, 3};
constexpr std::uint32_t kVlans[] = {10, 20, 30};

bool isInLifProfile(Jericho2LifProfiles p) {
  return p >= Jericho2LifProfiles::vplsSpokeInLifProfile_ &&
         p <= Jericho2LifProfiles::vplsMeshInLifProfile4_;
}

struct Action {
  std::string text;
  std::function<void()> apply;
};

// A step that is valid now; calling it chooses its values.
using Step = std::function<Action()>;

// What a pseudowire went through that some checks must allow for; forgotten with its record,
// except `desynced`.
struct PwHistory {
  // Its record has been standby: the counter counts every re-programming of the standby entry.
  bool everStandby = false;
  // An untagged VLAN of it went while it was standby: that deletes the key (label, 0, 0),
  // which is the standby entry's.
  bool standbyEntryLost = false;
  // Requests and additional data of it may have been made under keys that its withdrawals do
  // not rebuild: its record got a configuration's names but kept older flags (a change refused
  // under VXLAN DCI or for want of an orientation), or a first configuration that got no
  // orientation left its key in the key map, which the next configuration requests again
  // whatever its group.
  bool desynced = false;
  // One of its orientation requests was refused. A configuration whose first VLAN's group is
  // refused is not taken as a whole: its other VLANs are not requested, and removing the
  // refused VLAN does not request them, so they may stay unprogrammed without a request.
  bool orientationRefused = false;
};

class Sequence {
 public:
  Sequence(SequenceChoices& choices, std::string name) : choices_(choices), name_(std::move(name)) {
    vxlanEvents_ = pick(2) == 0;
    r_.allocatorIs(pick(2) == 0 ? 1 : 3);
    r_.start();
  }

  // Runs the steps and the final removal; returns what went wrong, empty when nothing did.
  std::string run() {
    while (choices_.anotherStep()) {
      auto const steps = validSteps();
      if (auto failure = apply(steps[pick(steps.size())]()); !failure.empty()) {
        return failure;
      }
    }
    return removeEverything();
  }

 private:
  std::uint32_t pick(std::size_t n) { return choices_.below(static_cast<std::uint32_t>(n)); }
  bool chance(std::uint32_t percent) { return pick(100) < percent; }

  Fab::VplsPwIntfInfo config(std::uint32_t n) const { return r_.pwConfig->vplsPwIntfInfo(pw(n)); }
  bool configured(std::uint32_t n) const { return r_.pwConfig->vplsPwIntfInfoHas(pw(n)); }
  bool labelled(std::uint32_t n) const { return r_.decapConfig->decapLabelHas(pw(n)); }
  bool failedAnswer(LifProfileOrientationKey const& key) const {
    return r_.lpoStatus->lpoResponse(key).orientation() == Orientation::orientationAllocFailed;
  }
  // The pseudowire has an orientation request whose allocation failed (or, `failed` false, one
  // that was granted).
  bool hasRequest(std::uint32_t n, bool failed) const {
    auto const& requests = r_.lpoConfig->lpoRequest();
    return std::any_of(requests.begin(), requests.end(), [&](auto const& key) {
      return key.pwIntfId() == pw(n) && failedAnswer(key) == failed;
    });
  }
  // The record's flags are those of the configuration.
  bool inSync(std::uint32_t n) const {
    auto const record = r_.sm->localPwInfo(pw(n));
    return record && configured(n) && config(n).standby() == bool(record->standby()) &&
           config(n).vlanAware() == bool(record->vlanAware()) &&
           config(n).splitHorizon() == bool(record->splitHorizon());
  }

  // Sequences that end in a range error or an assertion of the state machine itself are not
  // generated. The three rules come from one behaviour: the record of a standby pseudowire
  // keeps its standby flag when its configuration goes, or when a change to non-standby is not
  // taken (refused under VXLAN DCI, or for want of an orientation).
  //
  // 1. While a record is standby and its configuration is not ("stuck"): a label written for
  //    the pseudowire programs its VLAN-less entry as a non-standby one, whose VLAN 0 raises
  //    "Bridging::VlanId::value < 1 or > 4094 not allowed"; a tag written while it has a label
  //    fails the assertion "hwVplsPwDecapConfig()->decapLabelHas( pwIntfId ) and ( standby or
  //    ..." without a FEC id, and with one programs an entry and a decap status that no removal
  //    takes back. Neither write is generated.
  bool stuckStandby(std::uint32_t n) const {
    auto const record = r_.sm->localPwInfo(pw(n));
    return record && record->standby() && !(configured(n) && config(n).standby());
  }
  // 2. Making a standby pseudowire non-standby while its label is there leaves its entry
  //    (label, 0, 0) in the table; the next removal or change of the configuration with the
  //    label still there deletes it as a non-standby VLAN-less entry, and its decap status (or,
  //    for a VLAN-aware pseudowire whose counter is 1, its VTT2 entry) under VLAN 0 raises the
  //    same range error. Such a configuration is not written.
  bool nonStandbyConfigAllowed(std::uint32_t n) const {
    auto const record = r_.sm->localPwInfo(pw(n));
    return !(record && record->standby() && labelled(n));
  }
  // 3. VXLAN going away (both flags clear) runs every VLAN tag again: for a stuck pseudowire
  //    with a label that is the tag write of rule 1, so the change waits.
  bool vxlanChangeAllowed(bool present, bool dci) const {
    return present || dci || std::none_of(std::begin(kPws), std::end(kPws), [&](std::uint32_t n) {
             return stuckStandby(n) && labelled(n);
           });
  }

  std::vector<Action> removals() {
    std::vector<Action> out;
    for (auto n : kPws) {
      auto const p = "pw" + std::to_string(n);
      if (configured(n)) {
        out.push_back({p + " config -", [=, this] { r_.removeConfig(n); }});
      }
      if (labelled(n)) {
        out.push_back({p + " label -", [=, this] { r_.removeLabel(n); }});
      }
      if (r_.decapConfig->encapHwFecIdHas(pw(n))) {
        out.push_back({p + " FEC -", [=, this] { r_.removeFec(n); }});
      }
      for (auto v : kVlans) {
        if (r_.decapConfig->vlanTagInfoHas(pwVlan(n, v))) {
          out.push_back(
              {p + " VLAN " + std::to_string(v) + " -", [=, this] { r_.removeTag(n, v); }});
        }
      }
    }
    return out;
  }

  // The steps valid now, each as often as its weight: writes outweigh removals.
  std::vector<Step> validSteps() {
    std::vector<Step> out;
    auto const add = [&out](std::uint32_t weight, Step const& step) {
      out.insert(out.end(), weight, step);
    };
    for (auto const& action : removals()) {
      add(1, [action] { return action; });
    }
    for (auto n : kPws) {
      auto const p = "pw" + std::to_string(n);
      bool const anyConfig = nonStandbyConfigAllowed(n);  // else only a standby one (rule 2)
      add(anyConfig ? 2 : 1, [=, this] {
        bool const standby = !anyConfig || chance(12);
        auto const instance = std::string(chance(50) ? "A" : "B");
        auto const group = std::vector<std::string>{"", "g1", "g2", "g3"}[pick(4)];
        bool const vlanAware = chance(30);
        bool const splitHorizon = chance(80);
        return Action{
            p + " config " + instance + "/" + group + (standby ? " standby" : "") +
                (vlanAware ? " vlanAware" : "") + (splitHorizon ? "" : " noSH"),
            [=, this] { r_.config(n, instance, group, standby, vlanAware, splitHorizon); }};
      });
      if (!stuckStandby(n)) {
        add(3, [=, this] {
          auto const label = 1000 * n + pick(2);
          return Action{p + " label " + std::to_string(label), [=, this] { r_.label(n, label); }};
        });
      }
      add(3, [=, this] {
        auto const f = pick(2);
        return Action{p + " FEC " + std::to_string(f),
                      [=, this] { r_.fec(n, 0x100 + f, 0x5000 + f); }};
      });
      if (!(stuckStandby(n) && labelled(n))) {
        add(3, [=, this] {
          auto const v = kVlans[pick(3)];
          auto const i = pick(v == 30 ? 3 : 2);
          auto const tag = i == 2 ? 0 : 100 * (i + 1) + v;
          return Action{p + " VLAN " + std::to_string(v) + " tag " + std::to_string(tag),
                        [=, this] { r_.tag(n, v, tag); }};
        });
      }
    }
    bool const present = r_.vtep->vxlanPresent();
    bool const dci = r_.vtep->vxlanDciConfigured();
    if (vxlanEvents_ && vxlanChangeAllowed(!present, dci)) {
      add(1, [=, this] {
        return Action{std::string("VXLAN ") + (present ? "-" : "+"),
                      [=, this] { r_.vtep->vxlanPresentIs(!present); }};
      });
    }
    if (vxlanEvents_ && vxlanChangeAllowed(present, !dci)) {
      add(1, [=, this] {
        return Action{std::string("VXLAN DCI ") + (dci ? "-" : "+"),
                      [=, this] { r_.vtep->vxlanDciConfiguredIs(!dci); }};
      });
    }
    return out;
  }

  std::string apply(Action const& action) {
    steps_.push_back(action.text);
    std::map<std::uint32_t, std::vector<Bridging::VlanId>> untaggedOfStandby;
    for (auto n : kPws) {
      if (auto const record = r_.sm->localPwInfo(pw(n)); record && record->standby()) {
        for (auto const& [v, tag] : record->normalisedTagPerVlan()) {
          if (tag.isNone()) {
            untaggedOfStandby[n].push_back(v);
          }
        }
      }
    }
    try {
      action.apply();
    } catch (std::exception const& e) {
      return report(std::string("\n  exception: ") + e.what());
    }
    for (auto n : kPws) {
      auto& h = histories_[n];
      auto const record = r_.sm->localPwInfo(pw(n));
      h.desynced = h.desynced ||
                   (record ? !record->vplsInstanceName().empty() && !inSync(n) : false) ||
                   (r_.keyMap->lifProfileOrientationKeyHas(pw(n)) &&
                    (!record || record->vplsInstanceName().empty()));
      if (!record) {
        h.everStandby = h.standbyEntryLost = h.orientationRefused = false;
        continue;
      }
      h.orientationRefused = h.orientationRefused || hasRequest(n, true);
      h.everStandby = h.everStandby || record->standby();
      for (auto const v : untaggedOfStandby[n]) {
        h.standbyEntryLost = h.standbyEntryLost || !record->normalisedTagPerVlanHas(v);
      }
      h.standbyEntryLost =
          h.standbyEntryLost && !r_.mplsDecapConfig->configHas(MplsDecapInfoKey(
                                    record->decapLabel(), Bridging::VlanIdOrNone()));
    }
    return report(violations());
  }

  std::string report(std::string const& what) const {
    if (what.empty()) {
      return what;
    }
    std::string out = name_ + ":" + what + "\nafter:";
    for (auto const& s : steps_) {
      out += "\n  " + s;
    }
    return out;
  }

  // What the state machine guarantees after every change. Left out, as meant behaviour: the
  // label map entry goes with the first of a pseudowire's entries while others remain (so it is
  // checked one way only); a standby pseudowire's counter counts every re-programming of its
  // single entry (so counters are checked only for records that were never standby); the VTT2
  // entry is removed under the VLAN of the last entry, not the one it was added under (so VTT2
  // entries are checked one way only, and may stay behind); a FEC id that arrives before the
  // instance is not taken (so completeness asks for the record's FEC flag, not the input's).
  std::string violations() const {
    std::string out;
    auto const fail = [&out](std::string const& s) { out += "\n  " + s; };
    auto const& sm = *r_.sm;
    auto const& table = r_.mplsDecapConfig->config();
    auto const entryOf = [&](Netcore::MplsLabel label, Bridging::VlanIdOrNone tag,
                             std::uint32_t v) -> MplsDecapInfo const* {
      auto const* info = table.find(MplsDecapInfoKey(label, tag));
      return info && isInLifProfile(info->inLifProfile()) && info->vlanId() == v ? info : nullptr;
    };

    // Records: keyed by their own id, holding something, mirroring the inputs.
    for (auto const& [id, record] : sm.localPwInfo()) {
      auto const& names = r_.pwConfig->vplsPwIntfInfo(id);
      if (record->pwIntfId() != id ||
          (record->vplsInstanceName().empty() && !record->standby() &&
           !record->encapHwFecIdAvail() && !record->decapLabel().isLabel() &&
           record->normalisedTagPerVlan().empty()) ||
          (!record->vplsInstanceName().empty() &&
           (names.vplsInstanceName() != record->vplsInstanceName() ||
            names.groupName() != record->groupName())) ||
          (record->encapHwFecIdAvail() && !r_.decapConfig->encapHwFecIdHas(id))) {
        fail(id.toString() + ": record does not match its key or its inputs");
      }
    }
    for (auto n : kPws) {
      auto const record = sm.localPwInfo(pw(n));
      bool mirrors = labelled(n)
                         ? record && record->decapLabel() == r_.decapConfig->decapLabel(pw(n))
                         : !record || !record->decapLabel().isLabel();
      for (auto v : kVlans) {
        bool const has = r_.decapConfig->vlanTagInfoHas(pwVlan(n, v));
        mirrors = mirrors && has == (record && record->normalisedTagPerVlanHas(vlan(v))) &&
                  (!has || record->normalisedTagPerVlan(vlan(v)) ==
                               r_.decapConfig->vlanTagInfo(pwVlan(n, v)));
      }
      if (!mirrors) {
        fail("pw" + std::to_string(n) + ": record label or tags differ from the inputs");
      }
    }

    // ESEM: per VLAN the number of its (pseudowire, VLAN) pairs, five entries per counted
    // VLAN, and application 25 and the EVEC request while any VLAN is counted.
    std::size_t counted = 0;
    for (auto v : kVlans) {
      auto const pairs = static_cast<std::uint16_t>(std::count_if(
          std::begin(kPws), std::end(kPws),
          [&](std::uint32_t n) { return r_.decapConfig->vlanTagInfoHas(pwVlan(n, v)); }));
      counted += pairs > 0 ? 1 : 0;
      if (sm.esemProgrammed(vlan(v)) != (pairs > 0 ? std::optional(pairs) : std::nullopt)) {
        fail("ESEM count of VLAN " + std::to_string(v) + " is not " + std::to_string(pairs));
      }
    }
    for (auto const& [key, info] : r_.esemConfig->esemConfig()) {
      auto const d = key.vlanDomain();
      if (!sm.esemProgrammedHas(vlan(key.vlanId())) || key.keyField3() != 2046 || d < 5 || d > 9 ||
          Marl::toValue(info.outLifProfile()) != (d == 5 ? 21 : d + 16) ||
          info.editProfile() != (info.tag() != 0 ? 14 : 21)) {
        fail("unexpected ESEM entry for VLAN " + std::to_string(key.vlanId()));
      }
    }
    if (sm.esemProgrammed().size() != counted || r_.esemEntries() != 5 * counted ||
        r_.appEnabled() != (counted > 0) || r_.evecRequested() != (counted > 0)) {
      fail("ESEM entries, application 25 or EVEC request out of step with the VLANs");
    }

    // Decap entries have one of three shapes: normal, standby, VTT2.
    for (auto const& [key, info] : table) {
      auto const profile = info.inLifProfile();
      bool const normal = isInLifProfile(profile) && info.vlanId() >= 10;
      bool const standby = profile == Jericho2LifProfiles::noLifProfile_ && info.hwFecId() == 0 &&
                           info.globalInLif() == 0 && info.vlanId() == 1 &&
                           key.innerDot1QTag().isNone();
      bool const vtt2 = profile == Jericho2LifProfiles::vplsVtt2InLifProfile_ &&
                        info.hwFecId() == 0 && info.vlanId() == 1;
      if (info.key() != key || key.keyField3() != 0 || !info.name().str().empty() || info.flag() ||
          info.field8() != 0 || info.field9() != 2 || !(normal || standby || vtt2)) {
        fail("malformed decap entry for label " + key.label().toString());
      }
    }
    // Every decap status has its normal entry, both with the FEC id in effect.
    for (auto const& [key, index] : r_.decapStatus->decapStatus()) {
      auto const record = sm.localPwInfo(key.pwIntfId());
      auto const* info =
          record && record->normalisedTagPerVlanHas(key.vlanId())
              ? entryOf(record->decapLabel(), record->normalisedTagPerVlan(key.vlanId()),
                        key.vlanId().value())
              : nullptr;
      if (!info || Fab::NexthopIndex(info->hwFecId(), info->globalInLif()) != index ||
          index != r_.decapConfig->encapHwFecId(key.pwIntfId())) {
        fail(key.pwIntfId().toString() + ": decap status of VLAN " +
             std::to_string(key.vlanId().value()) + " without its entry");
      }
    }
    // Every label map entry names the pseudowire whose label it is, and an entry of the label.
    for (auto const& mapped : r_.labelToPw->labelToPwIntf()) {
      auto const label = mapped.first;
      auto const record = sm.localPwInfo(mapped.second);
      bool const entry = std::any_of(table.begin(), table.end(), [&](auto const& e) {
        return e.first.label() == label &&
               e.second.inLifProfile() != Jericho2LifProfiles::vplsVtt2InLifProfile_;
      });
      if (!record || record->decapLabel() != label || !entry) {
        fail("label map entry " + label.toString() + " without its pseudowire's entry");
      }
    }
    // The allocator answers every request and withdraws the answer with it.
    for (auto const& key : r_.lpoConfig->lpoRequest()) {
      if (!r_.lpoStatus->lpoResponseHas(key)) {
        fail("orientation request " + key.toStrep() + " without answer");
      }
    }
    for (auto const& [key, answer] : r_.lpoStatus->lpoResponse()) {
      if (!r_.lpoConfig->lpoRequestHas(key)) {
        fail("orientation answer " + key.toStrep() + " without request");
      }
    }
    // Every normal entry is a VLAN of a configured pseudowire whose record has the entry's
    // label, the VLAN with the entry's tag and the FEC id, which is the one in effect.
    for (auto const& entry : table) {
      auto const& key = entry.first;
      auto const& info = entry.second;
      if (!isInLifProfile(info.inLifProfile()) || info.vlanId() < 10) {
        continue;
      }
      bool const owned = std::any_of(std::begin(kPws), std::end(kPws), [&](std::uint32_t n) {
        auto const record = sm.localPwInfo(pw(n));
        auto const v = vlan(info.vlanId());
        return record && configured(n) && record->decapLabel() == key.label() &&
               record->normalisedTagPerVlanHas(v) &&
               record->normalisedTagPerVlan(v) == key.innerDot1QTag() &&
               record->encapHwFecIdAvail() &&
               Fab::NexthopIndex(info.hwFecId(), info.globalInLif()) ==
                   r_.decapConfig->encapHwFecId(pw(n));
      });
      if (!owned) {
        fail("decap entry of label " + key.label().toString() + " and VLAN " +
             std::to_string(info.vlanId()) + " without a pseudowire that has all its inputs");
      }
    }

    for (auto n : kPws) {
      auto const record = sm.localPwInfo(pw(n));
      if (!record) {
        continue;
      }
      auto const p = "pw" + std::to_string(n);
      auto const& h = histories_.at(n);
      auto const label = record->decapLabel();
      auto const statuses =
          std::count_if(r_.decapStatus->decapStatus().begin(), r_.decapStatus->decapStatus().end(),
                        [&](auto const& s) { return s.first.pwIntfId() == pw(n); });

      // A standby pseudowire has its single entry while it has a label, and nothing else.
      if (record->standby() && inSync(n)) {
        auto const* info = table.find(MplsDecapInfoKey(label, Bridging::VlanIdOrNone()));
        bool const entry = info && info->inLifProfile() == Jericho2LifProfiles::noLifProfile_;
        if ((entry ? !label.isLabel() : label.isLabel() && !h.standbyEntryLost) || statuses != 0 ||
            (hasRequest(n, false) && !h.desynced) || r_.pwStatus->encapAdditionalIdHas(pw(n))) {
          fail(p + ": standby pseudowire without its single entry, or with more");
        }
      }
      // The counter counts the pseudowire's statuses and normal entries; a VLAN-aware
      // pseudowire with entries has its VTT2 entry, with the global in-LIF in effect.
      if (!h.everStandby) {
        auto const entries = std::count_if(table.begin(), table.end(), [&](auto const& e) {
          return e.first.label() == label && isInLifProfile(e.second.inLifProfile());
        });
        if (record->countProgrammed() != statuses || record->countProgrammed() != entries) {
          fail(p + ": counter " + std::to_string(record->countProgrammed()) + ", statuses " +
               std::to_string(statuses) + ", entries " + std::to_string(entries));
        }
        auto const inLif = r_.decapConfig->encapHwFecId(pw(n)).globalInLif();
        if (record->countProgrammed() > 0 && record->vlanAware() && inSync(n) &&
            std::none_of(table.begin(), table.end(), [&](auto const& e) {
              return e.first.label() == label && e.second.globalInLif() == inLif &&
                     e.second.inLifProfile() == Jericho2LifProfiles::vplsVtt2InLifProfile_;
            })) {
          fail(p + ": VLAN-aware pseudowire without its VTT2 entry");
        }
      }
      // Outside VXLAN's regimes, a non-standby pseudowire with instance, label, FEC flag and
      // VLANs, none of whose orientations failed, has an entry and a status per VLAN, with the
      // FEC id in effect and the profile its group was given; after a refusal, only per VLAN
      // whose group is requested.
      if (r_.vtep->vxlanPresent() || r_.vtep->vxlanDciConfigured() || !inSync(n) ||
          record->standby() || record->vplsInstanceName().empty() || !label.isLabel() ||
          !record->encapHwFecIdAvail() || hasRequest(n, true)) {
        continue;
      }
      auto const fec = r_.decapConfig->encapHwFecId(pw(n));
      for (auto const& [v, tag] : record->normalisedTagPerVlan()) {
        bool const wide = record->vlanAware();
        LifProfileOrientationKey const key(
            VlanAndVplsKey(wide ? record->vplsInstanceName() : Loom::String(), wide ? 0 : v.value(),
                           record->groupName(), record->splitHorizon()),
            pw(n));
        if (h.orientationRefused && !r_.lpoConfig->lpoRequestHas(key)) {
          continue;
        }
        auto const* info = entryOf(label, tag, v.value());
        if (!info || Fab::NexthopIndex(info->hwFecId(), info->globalInLif()) != fec ||
            !r_.lpoStatus->lpoResponseHas(key) ||
            info->inLifProfile() != r_.lpoStatus->lpoResponse(key).inLifProfile() ||
            r_.decapStatus->decapStatus(pwVlan(n, v.value())) != fec) {
          fail(p + ": VLAN " + std::to_string(v.value()) + " not programmed as configured");
        }
      }
    }
    return out;
  }

  // Removes every input and VXLAN flag in an order of the choices (a VXLAN change that rule 3 holds
  // back goes after the rest) and checks that only what is left behind on purpose is left.
  std::string removeEverything() {
    auto steps = removals();
    for (std::size_t i = steps.size(); i > 1; --i) {
      std::swap(steps[i - 1], steps[pick(i)]);
    }
    if (r_.vtep->vxlanDciConfigured()) {
      steps.insert(steps.begin() + pick(steps.size() + 1),
                   {"VXLAN DCI -", [this] { r_.vtep->vxlanDciConfiguredIs(false); }});
    }
    if (r_.vtep->vxlanPresent()) {
      steps.insert(steps.begin() + pick(steps.size() + 1),
                   {"VXLAN -", [this] { r_.vtep->vxlanPresentIs(false); }});
    }
    for (std::size_t i = 0; i < steps.size(); ++i) {
      bool const present = r_.vtep->vxlanPresent() && steps[i].text != "VXLAN -";
      bool const dci = r_.vtep->vxlanDciConfigured() && steps[i].text != "VXLAN DCI -";
      if (steps[i].text.starts_with("VXLAN") && !vxlanChangeAllowed(present, dci)) {
        steps.push_back(steps[i]);
      } else if (auto failure = apply(steps[i]); !failure.empty()) {
        return failure;
      }
    }

    std::string left;
    auto const allowed = [&left](bool ok, std::string const& what) {
      left += ok ? "" : "\n  " + what + " left";
    };
    allowed(r_.decapStatus->decapStatus().empty(), "decap status");
    allowed(r_.labelToPw->labelToPwIntf().empty(), "label map entry");
    allowed(r_.esemConfig->esemConfig().empty() && r_.sm->esemProgrammed().empty(), "ESEM entry");
    allowed(!r_.appEnabled() && !r_.evecRequested(), "application 25 or EVEC request");
    allowed(r_.pwStatus->encapAdditionalId().empty(), "encap additional id");
    // VTT2 entries removed under another VLAN than the one they were added under stay.
    for (auto const& [key, info] : r_.mplsDecapConfig->config()) {
      allowed(info.inLifProfile() == Jericho2LifProfiles::vplsVtt2InLifProfile_,
              "decap entry of label " + key.label().toString());
    }
    // A failed allocation's request stays (so that a later answer can still arrive), and the
    // key map entry made with it.
    for (auto const& key : r_.lpoConfig->lpoRequest()) {
      allowed(failedAnswer(key) || histories_.at(key.pwIntfId().pseudowireNumber()).desynced,
              "orientation request " + key.toStrep());
    }
    for (auto const& [id, key] : r_.keyMap->lifProfileOrientationKey()) {
      allowed(r_.lpoConfig->lpoRequestHas(key) && failedAnswer(key),
              "orientation key map entry " + key.toStrep());
    }
    for (auto const& [key, id] : r_.additionalData->additionalDataMap()) {
      allowed(histories_.at(key.pwIntfId().pseudowireNumber()).desynced,
              "additional data of " + key.pwIntfId().toString());
    }
    // Nothing clears a record's standby flag, so a standby pseudowire's record stays with it.
    for (auto const& [id, record] : r_.sm->localPwInfo()) {
      allowed(record->standby() && record->vplsInstanceName().empty() &&
                  !record->decapLabel().isLabel() && !record->encapHwFecIdAvail() &&
                  record->normalisedTagPerVlan().empty(),
              "record of " + id.toString());
    }
    return report(left.empty() ? left : "\n  after removing everything:" + left);
  }

  SequenceChoices& choices_;
  std::string const name_;
  bool vxlanEvents_ = false;
  DecapSmRig r_;
  std::vector<std::string> steps_;
  std::map<std::uint32_t, PwHistory> histories_{{1, {}}, {2, {}}, {3, {}}};
};

}  // namespace

std::string runDecapSequence(SequenceChoices& choices, std::string const& name) {
  return Sequence(choices, name).run();
}

}  // namespace Hardware::MarlTunnel::test
