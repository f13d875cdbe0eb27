// The agent's poll loop: timer order, descriptor handlers, changes made from inside handlers,
// and stopping. Stopping from a signal handler is checked on the runner's serve
// (tests/sim/SimGoldenTest.cpp, SimServe).

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Orb/TaskSchedulerRoot.h"
#include "Orb/UniqueFd.h"

namespace {

using namespace std::chrono_literals;
using Orb::TaskSchedulerRoot;
using Orb::UniqueFd;

struct Pipe {
  Pipe() {
    int fds[2];
    EXPECT_EQ(::pipe2(fds, O_NONBLOCK | O_CLOEXEC), 0);
    read = UniqueFd(fds[0]);
    write = UniqueFd(fds[1]);
  }
  void put(char c) const { ASSERT_EQ(::write(write.get(), &c, 1), 1); }
  UniqueFd read;
  UniqueFd write;
};

// Runs rounds until `done` holds; fails after a generous bound instead of hanging.
template <class Done>
void runUntil(TaskSchedulerRoot& scheduler, Done done) {
  auto const deadline = std::chrono::steady_clock::now() + 10s;
  while (!done()) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "condition not reached";
    scheduler.runOnce(50ms);
  }
}

TEST(OrbScheduler, TimersRunInDueOrderAndCreationOrderWhenDueTogether) {
  auto const scheduler = TaskSchedulerRoot::TaskSchedulerRootIs();
  std::string order;
  scheduler->timerIs(40ms, [&] { order += 'd'; });
  scheduler->timerIs(10ms, [&] { order += 'b'; });
  scheduler->timerIs(10ms, [&] { order += 'c'; });
  scheduler->timerIs(0ms, [&] { order += 'a'; });
  auto const cancelled = scheduler->timerIs(5ms, [&] { order += 'X'; });
  EXPECT_EQ(scheduler->timerCount(), 5u);
  scheduler->timerDel(cancelled);
  scheduler->timerDel(cancelled);  // already gone: nothing happens
  runUntil(*scheduler, [&] { return order.size() == 4; });
  EXPECT_EQ(order, "abcd");
  EXPECT_EQ(scheduler->timerCount(), 0u);
}

TEST(OrbScheduler, TimerChangesMadeInsideARoundTakeEffectAtOnce) {
  auto const scheduler = TaskSchedulerRoot::TaskSchedulerRootIs();
  std::string order;
  TaskSchedulerRoot::TimerId second = 0;
  // Both are due in the same round; the first cancels the second and adds a new timer,
  // which must wait for a later round.
  scheduler->timerIs(0ms, [&] {
    order += '1';
    scheduler->timerDel(second);
    scheduler->timerIs(0ms, [&] { order += '3'; });
  });
  second = scheduler->timerIs(0ms, [&] { order += '2'; });
  std::this_thread::sleep_for(1ms);  // both due before the round starts
  EXPECT_EQ(scheduler->runOnce(0ms), 1u);
  EXPECT_EQ(order, "1");
  runUntil(*scheduler, [&] { return order.size() == 2; });
  EXPECT_EQ(order, "13");
}

TEST(OrbScheduler, FdHandlerGetsTheReadyEventsUntilRemoved) {
  auto const scheduler = TaskSchedulerRoot::TaskSchedulerRootIs();
  Pipe pipe;
  std::vector<short> seen;
  scheduler->fdHandlerIs(pipe.read.get(), POLLIN, [&](short revents) {
    seen.push_back(revents);
    char c;
    ASSERT_EQ(::read(pipe.read.get(), &c, 1), 1);
  });
  EXPECT_EQ(scheduler->runOnce(0ms), 0u) << "nothing ready yet";
  pipe.put('x');
  EXPECT_EQ(scheduler->runOnce(1000ms), 1u);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_TRUE(seen[0] & POLLIN);

  scheduler->fdHandlerDel(pipe.read.get());
  pipe.put('y');
  EXPECT_EQ(scheduler->runOnce(0ms), 0u);
  EXPECT_EQ(seen.size(), 1u);
  EXPECT_THROW(scheduler->fdHandlerIs(-1, POLLIN, [](short) {}), std::invalid_argument);
  EXPECT_THROW(scheduler->fdHandlerIs(pipe.read.get(), POLLIN, {}), std::invalid_argument);
}

TEST(OrbScheduler, HandlersRemovedOrReplacedDuringARoundAreNotCalledInIt) {
  auto const scheduler = TaskSchedulerRoot::TaskSchedulerRootIs();
  Pipe a;
  Pipe b;
  a.put('a');
  b.put('b');
  std::string calls;
  // The lower descriptor runs first: it removes itself (while running), and replaces the
  // other descriptor's handler, whose readiness this round belongs to the old one.
  Pipe const& first = a.read.get() < b.read.get() ? a : b;
  Pipe const& second = a.read.get() < b.read.get() ? b : a;
  scheduler->fdHandlerIs(second.read.get(), POLLIN, [&](short) { calls += "old"; });
  scheduler->fdHandlerIs(first.read.get(), POLLIN, [&](short) {
    calls += "first;";
    scheduler->fdHandlerDel(first.read.get());
    scheduler->fdHandlerIs(second.read.get(), POLLIN, [&](short) { calls += "new;"; });
  });
  EXPECT_EQ(scheduler->runOnce(1000ms), 1u);
  EXPECT_EQ(calls, "first;");
  EXPECT_FALSE(scheduler->fdHandlerHas(first.read.get()));
  EXPECT_EQ(scheduler->runOnce(1000ms), 1u);
  EXPECT_EQ(calls, "first;new;");
}

TEST(OrbScheduler, DescriptorClosedWhileWatchedIsReportedOnceThenForgotten) {
  auto const scheduler = TaskSchedulerRoot::TaskSchedulerRootIs();
  Pipe pipe;
  int const fd = pipe.read.get();
  std::vector<short> seen;
  scheduler->fdHandlerIs(fd, POLLIN, [&](short revents) { seen.push_back(revents); });
  pipe.read.reset();
  scheduler->runOnce(0ms);
  scheduler->runOnce(0ms);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_TRUE(seen[0] & POLLNVAL);
  EXPECT_FALSE(scheduler->fdHandlerHas(fd));
}

TEST(OrbScheduler, HandlerExceptionReachesTheCallerAndTheSchedulerGoesOn) {
  auto const scheduler = TaskSchedulerRoot::TaskSchedulerRootIs();
  int ran = 0;
  scheduler->timerIs(0ms, [] { throw std::runtime_error("handler failed"); });
  EXPECT_THROW(runUntil(*scheduler, [] { return false; }), std::runtime_error);
  scheduler->timerIs(0ms, [&] { ++ran; });
  runUntil(*scheduler, [&] { return ran == 1; });
}

TEST(OrbScheduler, RunReturnsAfterStopFromAHandler) {
  auto const scheduler = TaskSchedulerRoot::TaskSchedulerRootIs();
  int ticks = 0;
  std::function<void()> tick = [&] {
    if (++ticks == 3) {
      scheduler->stop();
    } else {
      scheduler->timerIs(1ms, tick);
    }
  };
  scheduler->timerIs(0ms, tick);
  EXPECT_FALSE(scheduler->stopped());
  scheduler->run();
  EXPECT_EQ(ticks, 3);
  EXPECT_TRUE(scheduler->stopped());
  scheduler->run();  // already stopped: returns at once
}

TEST(OrbScheduler, RootIsClearedWhenTheRootSchedulerGoes) {
  auto scheduler = TaskSchedulerRoot::TaskSchedulerRootIs();
  auto other = TaskSchedulerRoot::TaskSchedulerRootIs();
  TaskSchedulerRoot::rootIs(scheduler.get());
  EXPECT_EQ(TaskSchedulerRoot::root(), scheduler.get());
  other = nullptr;  // not the root: the root stays
  EXPECT_EQ(TaskSchedulerRoot::root(), scheduler.get());
  scheduler = nullptr;
  EXPECT_EQ(TaskSchedulerRoot::root(), nullptr);
}

}  // namespace
