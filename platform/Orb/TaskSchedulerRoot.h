#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string_view>
#include <utility>

#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/TypeData.h"

namespace Orb {

// The agent's scheduler: one thread running a poll(2) loop that calls file-descriptor handlers
// when their descriptor is ready and timer handlers when they are due. Everything the agent
// does runs inside a handler, one at a time, so the agent's entities need no locks.
//
// A round (runOnce) waits until a descriptor is ready, the first timer is due or the round's
// limit passes, then runs the timers that were due when it woke (earliest first, in the order
// they were created when due together) and then the handlers of the descriptors that were
// ready. A handler may add or remove any handler or timer, its own included: a handler removed
// during a round is not called later in that round, and a timer created during a round runs
// in a later one. A descriptor reported invalid (closed without fdHandlerDel) is handed to its
// handler once with POLLNVAL and then forgotten. A handler's exception leaves the round and
// propagates to the caller of runOnce()/run(); the scheduler stays usable.
//
// The process's root scheduler (root()) is the one the agent runs; services that need the
// agent's loop (the command socket) find it there. Whoever creates the agent's scheduler sets
// it; a scheduler that is destroyed stops being the root.
//
// Threading: everything runs on the scheduler's thread, except stopFromSignal(), which any
// thread and any signal handler may call, and root()/rootIs().
class TaskSchedulerRoot : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Orb::TaskSchedulerRoot";

  using FdHandler = std::function<void(short revents)>;
  using TimerHandler = std::function<void()>;
  // Timer ids count up from 1; 0 is never a timer.
  using TimerId = std::uint64_t;
  using Clock = std::chrono::steady_clock;

  static Loom::Ptr<TaskSchedulerRoot> TaskSchedulerRootIs();
  // std::system_error when the wake-up pipe cannot be created.
  TaskSchedulerRoot();
  ~TaskSchedulerRoot() override;

  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }

  // The process's root scheduler; null when none is set. Not counted: the scheduler's creator
  // keeps it alive.
  static TaskSchedulerRoot* root() noexcept { return root_.load(std::memory_order_acquire); }
  static void rootIs(TaskSchedulerRoot* scheduler) noexcept {
    root_.store(scheduler, std::memory_order_release);
  }

  // Calls `handler` with the returned events whenever `fd` is ready for `events` (POLLIN,
  // POLLOUT, ...; errors and hang-ups are always reported). Replaces a handler already set for
  // `fd`. std::invalid_argument for a negative descriptor or an empty handler.
  void fdHandlerIs(int fd, short events, FdHandler handler);
  // Stops watching `fd`; nothing happens when it is not watched. Does not close it.
  void fdHandlerDel(int fd);
  bool fdHandlerHas(int fd) const { return fds_.contains(fd); }
  std::size_t fdHandlerCount() const noexcept { return fds_.size(); }

  // Calls `handler` once, in the first round at least `delay` from now (a negative delay
  // counts as zero). std::invalid_argument for an empty handler.
  TimerId timerIs(std::chrono::milliseconds delay, TimerHandler handler);
  // Cancels the timer; nothing happens when it has run or was cancelled before.
  void timerDel(TimerId id);
  bool timerHas(TimerId id) const { return timerDue_.contains(id); }
  std::size_t timerCount() const noexcept { return timerDue_.size(); }

  // Runs one round, waiting at most `maxWait` (a negative wait counts as zero). Returns the
  // number of handlers called. std::system_error when poll(2) fails other than by a signal.
  std::size_t runOnce(std::chrono::milliseconds maxWait);
  // Runs rounds until stop() or stopFromSignal(); returns at once when already stopped.
  void run();
  // Asks run() to return after the current round.
  void stop() noexcept { stopRequested_.store(true, std::memory_order_relaxed); }
  // The same from a signal handler or another thread: async-signal-safe; wakes a waiting
  // round through the scheduler's self-pipe.
  void stopFromSignal() noexcept;
  bool stopped() const noexcept { return stopRequested_.load(std::memory_order_relaxed); }

 private:
  struct FdEntry {
    int fd;
    short events;
    FdHandler handler;
  };
  using TimerKey = std::pair<Clock::time_point, TimerId>;

  // One round; a negative timeout waits for the first event or timer without limit.
  std::size_t round(int timeoutMs);
  int timeoutUntilFirstTimer(int timeoutMs) const;
  std::size_t runDueTimers();
  void drainWakePipe() noexcept;

  static inline std::atomic<TaskSchedulerRoot*> root_{nullptr};

  // Shared with a round in progress, so that a handler may remove itself while it runs.
  std::map<int, std::shared_ptr<FdEntry>> fds_;
  std::map<TimerKey, TimerHandler> timers_;
  std::map<TimerId, Clock::time_point> timerDue_;
  TimerId nextTimerId_ = 1;
  int wakeRead_ = -1;
  int wakeWrite_ = -1;
  std::atomic<bool> stopRequested_{false};
  static_assert(std::atomic<bool>::is_always_lock_free, "stopFromSignal needs a lock-free flag");
};

}  // namespace Orb
