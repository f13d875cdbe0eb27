#include "agent/ServiceNotifier.h"

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <system_error>

namespace VplsAgent {
namespace {

// STATUS= with the text on one line.
std::string statusAssignment(std::string_view text) {
  std::string assignment = "STATUS=";
  for (char const c : text) {
    assignment.push_back(c == '\n' ? ' ' : c);
  }
  return assignment;
}

}  // namespace

ServiceNotifier::ServiceNotifier(Orb::TaskSchedulerRoot& scheduler, StderrLog log)
    : scheduler_(scheduler), log_(std::move(log)), socket_([] {
        char const* const socket = std::getenv("NOTIFY_SOCKET");
        return socket != nullptr ? std::string(socket) : std::string();
      }()) {
  std::uint64_t usec = 0;
  if (!managed() || ::sd_watchdog_enabled(0, &usec) <= 0) {
    return;
  }
  feedEvery_ = std::max(
      std::chrono::milliseconds(1),
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::microseconds(usec) / 2));
  watchdogTimer_ = scheduler_.timerIs(feedEvery_, [this] { feedWatchdog(); });
}

ServiceNotifier::~ServiceNotifier() {
  if (watchdogTimer_ != 0) {
    scheduler_.timerDel(watchdogTimer_);
  }
}

void ServiceNotifier::ready(std::string_view status) {
  if (!managed()) {
    return;
  }
  std::string message = ready_ ? "" : "READY=1\n";
  ready_ = true;
  send(message.append(statusAssignment(status)));
}

void ServiceNotifier::status(std::string_view text) {
  if (!managed()) {
    return;
  }
  send(statusAssignment(text));
}

void ServiceNotifier::stopping() {
  if (managed()) {
    send("STOPPING=1");
  }
}

void ServiceNotifier::feedWatchdog() {
  watchdogTimer_ = scheduler_.timerIs(feedEvery_, [this] { feedWatchdog(); });
  send("WATCHDOG=1");
}

void ServiceNotifier::send(std::string const& message) {
  int const result = ::sd_notify(0, message.c_str());
  if (result >= 0 || failed_) {
    return;
  }
  failed_ = true;
  log_.say(LogPriority::warning, "cannot notify the service manager at " + socket_ + " (" +
                                     std::generic_category().message(-result) + ")");
}

}  // namespace VplsAgent
