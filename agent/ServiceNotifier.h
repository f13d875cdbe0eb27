#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "Orb/TaskSchedulerRoot.h"
#include "agent/StderrLog.h"

namespace VplsAgent {

// The agent's messages to the service manager that started it (sd_notify(3)): that it is
// ready, once its first synchronisation is written; a status text for `systemctl status`;
// that it is stopping; and the watchdog. When the manager asks for a watchdog
// (sd_watchdog_enabled(3)), a timer of the agent's scheduler sends WATCHDOG=1 at half the
// interval, so that a loop that hangs stops feeding it and the manager restarts the agent.
//
// Outside a service manager (no $NOTIFY_SOCKET) every call does nothing and no timer runs.
// Invariants: READY=1 goes out at most once; the watchdog timer is armed exactly while the
// manager asked for a watchdog and the notifier lives; the first failed message is said, and
// none after it.
// Threading: the scheduler's thread.
class ServiceNotifier {
 public:
  ServiceNotifier(Orb::TaskSchedulerRoot& scheduler, StderrLog log);
  ~ServiceNotifier();
  ServiceNotifier(ServiceNotifier const&) = delete;
  ServiceNotifier& operator=(ServiceNotifier const&) = delete;

  // Whether a service manager listens.
  bool managed() const noexcept { return !socket_.empty(); }
  // READY=1 with the status text the first time; later calls only set the status.
  void ready(std::string_view status);
  // The status text (one line; line breaks become blanks).
  void status(std::string_view text);
  // STOPPING=1: the orderly stop begins.
  void stopping();

 private:
  void send(std::string const& message);
  void feedWatchdog();

  Orb::TaskSchedulerRoot& scheduler_;
  StderrLog const log_;
  // $NOTIFY_SOCKET; empty: no service manager listens.
  std::string const socket_;
  bool ready_ = false;
  bool failed_ = false;
  // Zero: no watchdog.
  std::chrono::milliseconds feedEvery_{0};
  Orb::TaskSchedulerRoot::TimerId watchdogTimer_ = 0;
};

}  // namespace VplsAgent
