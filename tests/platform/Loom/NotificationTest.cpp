// Notification promises of framework entities, observed through HwVplsPwDecapConfig.

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Fab/HwVplsPwDecapConfig.h"

namespace {

using Fab::HwVplsPwDecapConfig;
using Netcore::IntfId;
using Netcore::MplsLabel;

IntfId pw(std::uint32_t n) {
  return IntfId::pseudowire(n);
}

// Appends "<name>:<member> <key>" to a shared log, then runs its hook (if any).
class Recorder : public HwVplsPwDecapConfig::Reactor {
 public:
  Recorder(std::string name, std::vector<std::string>& log) : name_(std::move(name)), log_(log) {}

  std::function<void()> hook;

  void onVlanTagInfo(Fab::VplsPwIntfVlanKey const& k) override {
    note("vlanTagInfo " + k.pwIntfId().toString() + "/" + k.vlanId().toString());
  }
  void onEncapHwFecId(IntfId const& k) override { note("encapHwFecId " + k.toString()); }
  void onDecapLabel(IntfId const& k) override { note("decapLabel " + k.toString()); }
  void onStartupSyncDone() override { note("startupSyncDone"); }
  void onRestartDone() override { note("restartDone"); }

 private:
  void note(std::string what) {
    log_.push_back(name_ + ":" + what);
    if (hook) {
      hook();
    }
  }

  std::string name_;
  std::vector<std::string>& log_;
};

using Log = std::vector<std::string>;

class LoomNotification : public ::testing::Test {
 protected:
  Loom::Ptr<HwVplsPwDecapConfig> cfg = HwVplsPwDecapConfig::HwVplsPwDecapConfigIs();
  Log log;
  Recorder a{"a", log};
  Recorder b{"b", log};
  Recorder c{"c", log};
};

// Which key a member notifies and in what order delAll goes is checked for every collection by
// tests/platform/EntitiesTest.cpp, what a reactor reads during a removal by MemberTreeTest.cpp.
TEST_F(LoomNotification, EveryWriteNotifiesAfterStoringButOnlyRealRemovalsNotify) {
  cfg->publisher().subscribe(a);
  std::vector<std::uint32_t> seen;
  a.hook = [&] { seen.push_back(cfg->decapLabel(pw(1)).value()); };
  Fab::VplsPwIntfVlanKey const key(pw(1), Bridging::VlanId(10));
  for (int round = 0; round < 2; ++round) {  // the second writes the same values again
    cfg->decapLabelIs(pw(1), MplsLabel(100));
    cfg->vlanTagInfoIs(key, Bridging::VlanIdOrNone(5));
    cfg->startupSyncDoneIs(true);
  }
  cfg->restartDoneIs(false);      // the default value: still a write
  EXPECT_EQ(seen.front(), 100u);  // the reactor already sees the new value
  EXPECT_TRUE(cfg->startupSyncDone());
  a.hook = nullptr;
  for (int round = 0; round < 2; ++round) {  // the second finds nothing to delete
    cfg->decapLabelDel(pw(1));
    cfg->encapHwFecIdDel(pw(1));
    cfg->vlanTagInfoDel(key);
    cfg->decapLabelDelAll();
  }
  Log const writes{"a:decapLabel Pseudowire1", "a:vlanTagInfo Pseudowire1/10", "a:startupSyncDone"};
  Log expected = writes;
  expected.insert(expected.end(), writes.begin(), writes.end());
  expected.insert(expected.end(),
                  {"a:restartDone", "a:decapLabel Pseudowire1", "a:vlanTagInfo Pseudowire1/10"});
  EXPECT_EQ(log, expected);
  EXPECT_EQ(cfg->decapLabel(pw(1)), MplsLabel());  // absent reads as "no label"
}

TEST_F(LoomNotification, ReactorsMayLeaveOrJoinDuringDelivery) {
  auto& publisher = cfg->publisher();
  publisher.subscribe(a);
  publisher.subscribe(b);
  publisher.subscribe(c);
  a.hook = [&] { publisher.unsubscribe(c); };  // another one, not yet called
  b.hook = [&] {
    publisher.unsubscribe(b);  // itself
    publisher.subscribe(c);    // rejoins: heard from the next notification on
  };
  cfg->startupSyncDoneIs(true);
  EXPECT_EQ(log, (Log{"a:startupSyncDone", "b:startupSyncDone"}));
  EXPECT_EQ(publisher.reactorCount(), 2u);
  EXPECT_FALSE(publisher.subscribed(b));

  a.hook = b.hook = nullptr;
  cfg->restartDoneIs(true);
  EXPECT_EQ(log, (Log{"a:startupSyncDone", "b:startupSyncDone", "a:restartDone", "c:restartDone"}));
}

TEST_F(LoomNotification, ReactorExceptionReachesTheWriterAndThePublisherStaysUsable) {
  auto& publisher = cfg->publisher();
  publisher.subscribe(a);
  publisher.subscribe(b);
  a.hook = [&] { throw std::runtime_error("reactor failed"); };
  EXPECT_THROW(cfg->decapLabelIs(pw(4), MplsLabel(44)), std::runtime_error);
  EXPECT_EQ(cfg->decapLabel(pw(4)), MplsLabel(44));  // the write itself happened

  a.hook = [&] {
    publisher.unsubscribe(a);  // leaving during a delivery that then fails still counts
    throw std::runtime_error("reactor failed again");
  };
  EXPECT_THROW(cfg->restartDoneIs(true), std::runtime_error);
  EXPECT_FALSE(publisher.subscribed(a));

  log.clear();
  cfg->decapLabelDel(pw(4));
  publisher.unsubscribe(b);  // outside any delivery now
  publisher.subscribe(a);
  a.hook = nullptr;
  cfg->startupSyncDoneIs(true);
  EXPECT_EQ(log, (Log{"b:decapLabel Pseudowire4", "a:startupSyncDone"}));
  EXPECT_EQ(publisher.reactorCount(), 1u);
}

TEST_F(LoomNotification, SubscribingTwiceSubscribesOnce) {
  auto& publisher = cfg->publisher();
  publisher.subscribe(a);
  publisher.subscribe(a);
  EXPECT_EQ(publisher.reactorCount(), 1u);
  cfg->decapLabelIs(pw(1), MplsLabel(1));
  EXPECT_EQ(log, (Log{"a:decapLabel Pseudowire1"}));
  publisher.unsubscribe(a);
  EXPECT_FALSE(publisher.subscribed(a));
  cfg->decapLabelIs(pw(1), MplsLabel(2));
  EXPECT_EQ(log.size(), 1u);
}

}  // namespace
