// MPLS decap and VTT2 entry programming: what each input change writes, with which values, and
// in which order.

#include <algorithm>
#include <functional>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "DecapSmFixture.h"

namespace Hardware::MarlTunnel::test {
namespace {

using Marl::Jericho2LifProfiles;

// Records, in order, every change of the entities one decap entry is made of: orientation
// requests, the label map, the decap table (normal and VTT2 entries told apart by the profile
// they were written with) and the decap status.
class WriteRecorder {
 public:
  explicit WriteRecorder(DecapSmRig& rig) : rig_(rig) {
    rig_.lpoConfig->publisher().subscribe(lpo_);
    rig_.labelToPw->publisher().subscribe(labelMap_);
    rig_.mplsDecapConfig->publisher().subscribe(decap_);
    rig_.decapStatus->publisher().subscribe(status_);
  }
  ~WriteRecorder() {
    rig_.lpoConfig->publisher().unsubscribe(lpo_);
    rig_.labelToPw->publisher().unsubscribe(labelMap_);
    rig_.mplsDecapConfig->publisher().unsubscribe(decap_);
    rig_.decapStatus->publisher().unsubscribe(status_);
  }
  WriteRecorder(WriteRecorder const&) = delete;
  WriteRecorder& operator=(WriteRecorder const&) = delete;

  std::vector<std::string> take() { return std::exchange(events_, {}); }

 private:
  void add(std::string what, bool present) { events_.push_back(what + (present ? " +" : " -")); }

  struct Lpo : LifProfileOrientationConfig::Reactor {
    explicit Lpo(WriteRecorder& w) : w(w) {}
    void onLpoRequest(LifProfileOrientationKey const& k) override {
      w.add("orientation request", w.rig_.lpoConfig->lpoRequestHas(k));
    }
    WriteRecorder& w;
  };
  struct LabelMap : Fab::LabelToPwIntfId::Reactor {
    explicit LabelMap(WriteRecorder& w) : w(w) {}
    void onLabelToPwIntf(Netcore::MplsLabel const& k) override {
      w.add("label map", w.rig_.labelToPw->labelToPwIntfHas(k));
    }
    WriteRecorder& w;
  };
  struct Decap : MplsDecapConfig::Reactor {
    explicit Decap(WriteRecorder& w) : w(w) {}
    void onConfig(MplsDecapInfoKey const& k) override {
      bool const present = w.rig_.mplsDecapConfig->configHas(k);
      if (present && w.rig_.mplsDecapConfig->config(k).inLifProfile() ==
                         Jericho2LifProfiles::vplsVtt2InLifProfile_) {
        vtt2.insert(k);
      }
      w.add(vtt2.contains(k) ? "VTT2 entry" : "decap entry", present);
      if (!present) {
        vtt2.erase(k);
      }
    }
    WriteRecorder& w;
    std::set<MplsDecapInfoKey> vtt2;
  };
  struct Status : Fab::HwVplsPwDecapStatus::Reactor {
    explicit Status(WriteRecorder& w) : w(w) {}
    void onDecapStatus(Fab::VplsPwIntfVlanKey const& k) override {
      w.add("decap status", w.rig_.decapStatus->decapStatusHas(k));
    }
    WriteRecorder& w;
  };

  DecapSmRig& rig_;
  std::vector<std::string> events_;
  Lpo lpo_{*this};
  LabelMap labelMap_{*this};
  Decap decap_{*this};
  Status status_{*this};
};

// A non-standby pseudowire in its own group on VLAN 10 (normalised tag 100 + n), with label
// 1000 * n and its FEC id as the test asks.
void configure(DecapSmRig& r, std::uint32_t n, bool withLabel, bool withFec) {
  r.config(n, "vpls1", "grp" + std::to_string(n));
  r.tag(n, 10, 100 + n);
  if (withLabel) {
    r.label(n, 1000 * n);
  }
  if (withFec) {
    r.fec(n, 0x100 * n, 0x5000 + n);
  }
}

TEST(DecapProgrammingTest, EntryWritesFollowTheirFixedOrder) {
  // Whichever input comes last, adding writes: orientation request, label map, decap entry,
  // decap status, VTT2 entry; removing it again: VTT2 entry, decap entry, label map, decap
  // status.
  using Input = std::function<void(DecapSmRig&)>;
  Input const write[] = {[](DecapSmRig& r) { r.tag(1, 10, 101); },
                         [](DecapSmRig& r) { r.label(1, 1000); },
                         [](DecapSmRig& r) { r.fec(1, 0x100, 0x5001); }};
  Input const remove[] = {[](DecapSmRig& r) { r.removeTag(1, 10); },
                          [](DecapSmRig& r) { r.removeLabel(1); },
                          [](DecapSmRig& r) { r.removeFec(1); }};
  for (int last : {0, 1, 2}) {
    SCOPED_TRACE("last input " + std::to_string(last));
    DecapSmRig r;
    r.start();
    r.config(1, "vpls1", "grp1", /*standby=*/false, /*vlanAware=*/true);
    for (int i : {0, 1, 2}) {
      if (i != last) {
        write[i](r);
      }
    }
    WriteRecorder recorder(r);
    write[last](r);
    EXPECT_EQ(recorder.take(),
              (std::vector<std::string>{"orientation request +", "label map +", "decap entry +",
                                        "decap status +", "VTT2 entry +"}));
    remove[last](r);
    EXPECT_EQ(recorder.take(), (std::vector<std::string>{"VTT2 entry -", "decap entry -",
                                                         "label map -", "decap status -"}));
  }
}

TEST(DecapProgrammingTest, FecIdBeforeInstanceIsIgnoredUntilPublishedAgain) {
  DecapSmRig r;
  r.start();
  r.fec(1, 0x100, 0x5001);
  EXPECT_EQ(r.sm->localPwInfo(pw(1)), nullptr);
  configure(r, 1, /*withLabel=*/true, /*withFec=*/false);
  EXPECT_FALSE(r.sm->localPwInfo(pw(1))->encapHwFecIdAvail());
  EXPECT_EQ(r.decapEntries(), 0u);

  r.fec(1, 0x100, 0x5001);
  ASSERT_TRUE(r.hasEntry(1000, 101));
  EXPECT_EQ(r.entry(1000, 101).hwFecId(), 0x100u);
}

TEST(DecapProgrammingTest, RepublishedInputReprogramsWithTheValuesReadThen) {
  // Neither a FEC id nor a label is compared with the one in effect: publishing either again
  // deletes every entry of the pseudowire and adds it back, with the values of that moment.
  DecapSmRig r;
  r.start();
  configure(r, 1, /*withLabel=*/true, /*withFec=*/true);
  r.tag(1, 20, 201);
  WriteRecorder recorder(r);

  r.fec(1, 0x777, 0x6666);
  for (auto const& [v, t] : {std::pair{10, 101}, std::pair{20, 201}}) {
    auto const e = r.entry(1000, t);
    EXPECT_EQ(e.hwFecId(), 0x777u);
    EXPECT_EQ(e.globalInLif(), 0x6666u);
    EXPECT_EQ(r.decapStatus->decapStatus(pwVlan(1, v)), Fab::NexthopIndex(0x777, 0x6666));
  }
  EXPECT_EQ(r.countProgrammed(1), 2u);
  recorder.take();

  r.label(1, 1000);  // the same label again
  auto const events = recorder.take();
  auto const count = [&](std::string const& e) {
    return std::count(events.begin(), events.end(), e);
  };
  EXPECT_EQ(count("decap entry -"), 2);
  EXPECT_EQ(count("decap entry +"), 2);
  ASSERT_FALSE(events.empty());
  EXPECT_EQ(events.front(), "decap entry -");  // delete first, then add
  EXPECT_EQ(r.decapEntries(), 2u);
  EXPECT_EQ(r.countProgrammed(1), 2u);
}

TEST(DecapProgrammingTest, FailedOrientationProgramsNothing) {
  // One mesh group per VLAN domain: the second group of VLAN 10 gets no orientation, and its
  // pseudowire no entry, no label map, no status and no count. Its request stays.
  DecapSmRig r;
  r.allocatorIs(1);
  r.start();
  configure(r, 1, /*withLabel=*/true, /*withFec=*/true);
  configure(r, 2, /*withLabel=*/true, /*withFec=*/true);

  EXPECT_EQ(r.decapEntries(), 1u);
  EXPECT_TRUE(r.hasEntry(1000, 101));
  EXPECT_FALSE(r.hasEntry(2000, 102));
  EXPECT_FALSE(r.labelToPw->labelToPwIntfHas(Netcore::MplsLabel(2000)));
  EXPECT_FALSE(r.decapStatus->decapStatusHas(pwVlan(2, 10)));
  EXPECT_EQ(r.countProgrammed(2), 0u);
  LifProfileOrientationKey const failed(VlanAndVplsKey("", 10, "grp2", true), pw(2));
  EXPECT_TRUE(r.lpoConfig->lpoRequestHas(failed));
  EXPECT_EQ(r.lpoStatus->lpoResponse(failed).orientation(), Orientation::orientationAllocFailed);
}

TEST(DecapProgrammingTest, CallsWithNothingToDoChangeNothing) {
  DecapSmRig r;
  r.start();
  configure(r, 1, /*withLabel=*/false, /*withFec=*/true);
  configure(r, 2, /*withLabel=*/true, /*withFec=*/true);
  WriteRecorder recorder(r);

  // No label: addDecapConfig programs nothing, for all VLANs or for one.
  r.sm->addDecapConfig(pw(1), 0);
  r.sm->addDecapConfig(pw(1), 10);
  EXPECT_EQ(r.countProgrammed(1), 0u);

  // Keys the table does not hold: another inner tag, another label.
  r.sm->deleteMplsDecapConfig(pw(2), Bridging::VlanIdOrNone(10), Bridging::VlanIdOrNone(999),
                              Netcore::MplsLabel(2000));
  r.sm->deleteMplsDecapConfig(pw(2), Bridging::VlanIdOrNone(10), Bridging::VlanIdOrNone(102),
                              Netcore::MplsLabel(2001));
  EXPECT_EQ(r.countProgrammed(2), 1u);
  EXPECT_TRUE(r.hasEntry(2000, 102));
  EXPECT_TRUE(r.decapStatus->decapStatusHas(pwVlan(2, 10)));
  EXPECT_TRUE(recorder.take().empty());
}

TEST(DecapProgrammingTest, DeletedLabelKeepsTheRecordWhileOtherPiecesRemain) {
  struct Case {
    char const* name;
    bool config;
    bool tag;
    bool recordKept;
  };
  for (auto const& c :
       {Case{"tags, no FEC id", true, true, true}, Case{"tag only", false, true, true},
        Case{"label only", false, false, false}}) {
    SCOPED_TRACE(c.name);
    DecapSmRig r;
    r.start();
    configure(r, 2, /*withLabel=*/true, /*withFec=*/true);  // another pseudowire's entry
    if (c.config) {
      r.config(1, "vpls1", "grp1");
    }
    if (c.tag) {
      r.tag(1, 10, 101);
    }
    r.label(1, 1000);
    WriteRecorder recorder(r);

    r.removeLabel(1);
    EXPECT_TRUE(recorder.take().empty());  // no decap entry deleted
    EXPECT_EQ(r.decapEntries(), 1u);
    auto const record = r.sm->localPwInfo(pw(1));
    ASSERT_EQ(record != nullptr, c.recordKept);
    if (record) {
      EXPECT_FALSE(record->decapLabel().isLabel());
      EXPECT_TRUE(record->normalisedTagPerVlanHas(vlan(10)));
    }
  }
}

std::string escapeRegex(std::string const& text) {
  static std::regex const special(R"([.^$|()\[\]{}*+?\\])");
  return std::regex_replace(text, special, R"(\$&)");
}

TEST(DecapProgrammingDeathTest, MissingOrientationAnswerFailsTheProfileCheck) {
  DecapSmRig r;
  r.allocator = nullptr;  // nobody answers orientation requests
  r.start();
  configure(r, 1, /*withLabel=*/true, /*withFec=*/false);
  EXPECT_DEATH(r.fec(1, 0x100, 0x5001),
               escapeRegex("inLifProfile >= Jericho2LifProfiles::vplsSpokeInLifProfile_ && "
                           "inLifProfile <= Jericho2LifProfiles::vplsMeshInLifProfile4_"));
}

}  // namespace
}  // namespace Hardware::MarlTunnel::test
