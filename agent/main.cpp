// vpls-decap-agent: the VPLS decap agent as a daemon on a Redis state database.
// Usage: agent/AgentCommandLine.cpp; keys, start-up, faults and recording: docs/agent.md.

#include <signal.h>

#include <atomic>
#include <csignal>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "VplsDecapVersion.h"
#include "agent/AgentCommandLine.h"
#include "agent/DecapAgent.h"
#include "agent/StderrLog.h"
#include "host/TraceOptions.h"
#include "host/UsageError.h"

namespace {

constexpr int kExitStopped = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;
constexpr char kProgram[] = "vpls-decap-agent";

// The running agent, for the signal handler; and whether a stop came before it ran.
std::atomic<VplsAgent::DecapAgent*> runningAgent{nullptr};
volatile std::sig_atomic_t stopRequested = 0;

extern "C" void onStopSignal(int) {
  stopRequested = 1;
  if (auto* const agent = runningAgent.load()) {
    agent->stopFromSignal();
  }
}

void installSignalHandlers() {
  struct sigaction action {};
  action.sa_handler = onStopSignal;
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &ignore, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  using VplsAgent::LogPriority;
  auto const log = VplsAgent::StderrLog::forStderr(kProgram);
  // First, so that a stop at any moment of the start is an orderly one.
  installSignalHandlers();
  VplsAgent::AgentCommandLine line;
  try {
    line = VplsAgent::parseAgentCommandLine(std::vector<std::string>(argv + 1, argv + argc));
  } catch (Host::UsageError const& e) {
    log.say(LogPriority::error, e.what());
    log.write(LogPriority::info, VplsAgent::agentUsage());
    return kExitUsage;
  }
  if (line.help) {
    std::cout << VplsAgent::agentUsage();
    return kExitStopped;
  }
  if (line.version) {
    std::cout << kProgram << " " << VPLS_DECAP_VERSION << "\n";
    return kExitStopped;
  }
  try {
    Host::applyTraceOptions(line.flashlog, line.traceFile, line.traceLevel);
  } catch (std::exception const& e) {
    log.say(LogPriority::error, e.what());
    return kExitUsage;
  }

  std::optional<VplsAgent::Credentials> credentials;
  if (line.passwordFile) {
    try {
      credentials = VplsAgent::readCredentials(line.redisUser, *line.passwordFile);
    } catch (VplsAgent::CredentialsError const& e) {
      log.say(LogPriority::error, e.what());
      return kExitUsage;
    }
  }

  try {
    VplsAgent::DecapAgent agent(line, std::move(credentials), log);
    runningAgent.store(&agent);
    if (stopRequested != 0) {
      agent.stopFromSignal();
    }
    int const code = agent.run();
    runningAgent.store(nullptr);
    return code;
  } catch (std::exception const& e) {
    runningAgent.store(nullptr);
    log.say(LogPriority::error, e.what());
    return kExitFailed;
  }
}
