#include "Orb/TaskSchedulerRoot.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "Orb/OrbTrace.h"

namespace Orb {

Trace::Facility& orbFacility() {
  static Trace::Facility& facility = Trace::facility("Orb");
  return facility;
}

Loom::Ptr<TaskSchedulerRoot> TaskSchedulerRoot::TaskSchedulerRootIs() {
  return Loom::make<TaskSchedulerRoot>();
}

TaskSchedulerRoot::TaskSchedulerRoot() {
  int fds[2];
  if (::pipe2(fds, O_NONBLOCK | O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(),
                            "Orb::TaskSchedulerRoot: cannot create the wake-up pipe");
  }
  wakeRead_ = fds[0];
  wakeWrite_ = fds[1];
}

TaskSchedulerRoot::~TaskSchedulerRoot() {
  TaskSchedulerRoot* self = this;
  root_.compare_exchange_strong(self, nullptr, std::memory_order_acq_rel);
  ::close(wakeRead_);
  ::close(wakeWrite_);
}

Loom::TypeData const& TaskSchedulerRoot::type() {
  static Loom::TypeData const data(
      typeName,
      {
          {"fdHandler", Loom::AttributeKind::collection, "Orb::TaskSchedulerRoot::FdHandler"},
          {"timer", Loom::AttributeKind::collection, "Orb::TaskSchedulerRoot::TimerHandler"},
      },
      [](Loom::ArgList const& args) -> Loom::Ptr<Loom::Node> {
        Loom::requireArgCount(args, 0, typeName);
        return TaskSchedulerRootIs();
      },
      false);
  return data;
}

void TaskSchedulerRoot::fdHandlerIs(int fd, short events, FdHandler handler) {
  if (fd < 0) {
    throw std::invalid_argument("Orb::TaskSchedulerRoot::fdHandlerIs: invalid file descriptor " +
                                std::to_string(fd));
  }
  if (!handler) {
    throw std::invalid_argument("Orb::TaskSchedulerRoot::fdHandlerIs: empty handler for fd " +
                                std::to_string(fd));
  }
  fds_.insert_or_assign(fd, std::make_shared<FdEntry>(FdEntry{fd, events, std::move(handler)}));
}

void TaskSchedulerRoot::fdHandlerDel(int fd) {
  fds_.erase(fd);
}

TaskSchedulerRoot::TimerId TaskSchedulerRoot::timerIs(std::chrono::milliseconds delay,
                                                      TimerHandler handler) {
  if (!handler) {
    throw std::invalid_argument("Orb::TaskSchedulerRoot::timerIs: empty handler");
  }
  auto const due = Clock::now() + std::max(delay, std::chrono::milliseconds::zero());
  TimerId const id = nextTimerId_++;
  timers_.emplace(TimerKey{due, id}, std::move(handler));
  timerDue_.emplace(id, due);
  return id;
}

void TaskSchedulerRoot::timerDel(TimerId id) {
  auto const it = timerDue_.find(id);
  if (it == timerDue_.end()) {
    return;
  }
  timers_.erase(TimerKey{it->second, id});
  timerDue_.erase(it);
}

std::size_t TaskSchedulerRoot::runOnce(std::chrono::milliseconds maxWait) {
  auto const ms = std::clamp<std::chrono::milliseconds::rep>(maxWait.count(), 0, INT_MAX);
  return round(static_cast<int>(ms));
}

void TaskSchedulerRoot::run() {
  while (!stopped()) {
    round(-1);
  }
}

void TaskSchedulerRoot::stopFromSignal() noexcept {
  int const savedErrno = errno;
  stopRequested_.store(true, std::memory_order_relaxed);
  char const byte = 's';
  // A full pipe already holds a wake-up; nothing else can go wrong that matters here.
  [[maybe_unused]] auto const n = ::write(wakeWrite_, &byte, 1);
  errno = savedErrno;
}

int TaskSchedulerRoot::timeoutUntilFirstTimer(int timeoutMs) const {
  if (timers_.empty()) {
    return timeoutMs;
  }
  auto const untilDue =
      std::chrono::ceil<std::chrono::milliseconds>(timers_.begin()->first.first - Clock::now())
          .count();
  auto const bounded = static_cast<int>(std::clamp<decltype(untilDue)>(untilDue, 0, INT_MAX));
  return timeoutMs < 0 ? bounded : std::min(timeoutMs, bounded);
}

std::size_t TaskSchedulerRoot::round(int timeoutMs) {
  std::vector<pollfd> pollSet;
  std::vector<std::shared_ptr<FdEntry>> watched;
  pollSet.reserve(fds_.size() + 1);
  watched.reserve(fds_.size());
  pollSet.push_back(pollfd{wakeRead_, POLLIN, 0});
  for (auto const& [fd, entry] : fds_) {
    pollSet.push_back(pollfd{fd, entry->events, 0});
    watched.push_back(entry);
  }

  if (::poll(pollSet.data(), pollSet.size(), timeoutUntilFirstTimer(timeoutMs)) < 0) {
    if (errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "Orb::TaskSchedulerRoot: poll");
    }
    for (auto& p : pollSet) {
      p.revents = 0;
    }
  }
  if (pollSet[0].revents != 0) {
    drainWakePipe();
  }

  std::size_t ran = runDueTimers();
  for (std::size_t i = 1; i < pollSet.size(); ++i) {
    short const revents = pollSet[i].revents;
    if (revents == 0) {
      continue;
    }
    auto const& entry = watched[i - 1];
    auto const current = fds_.find(entry->fd);
    if (current == fds_.end() || current->second != entry) {
      continue;  // removed or replaced by an earlier handler of this round
    }
    ++ran;
    entry->handler(revents);
    if ((revents & POLLNVAL) != 0) {
      auto const still = fds_.find(entry->fd);
      if (still != fds_.end() && still->second == entry) {
        TRACE(orbFacility(), kOrbTraceError, "fd ", entry->fd,
              " closed while watched; handler removed");
        fds_.erase(still);
      }
    }
  }
  return ran;
}

std::size_t TaskSchedulerRoot::runDueTimers() {
  auto const now = Clock::now();
  std::vector<TimerKey> due;
  for (auto it = timers_.begin(); it != timers_.end() && it->first.first <= now; ++it) {
    due.push_back(it->first);
  }
  std::size_t ran = 0;
  for (auto const& key : due) {
    auto const it = timers_.find(key);
    if (it == timers_.end()) {
      continue;  // cancelled by an earlier timer of this round
    }
    TimerHandler handler = std::move(it->second);
    timers_.erase(it);
    timerDue_.erase(key.second);
    ++ran;
    handler();
  }
  return ran;
}

void TaskSchedulerRoot::drainWakePipe() noexcept {
  char buffer[64];
  while (::read(wakeRead_, buffer, sizeof buffer) > 0) {
  }
}

namespace {
Loom::TypeRegistration const registration(TaskSchedulerRoot::type());
}

}  // namespace Orb
