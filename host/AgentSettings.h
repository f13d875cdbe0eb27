#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "Cog/Log.h"
#include "Hardware/AradIhpLifTable.h"
#include "Loom/Ptr.h"
#include "Orb/TaskSchedulerRoot.h"

namespace Host {

// What an agent process is told from outside, as one value: a host fills it in and the agent
// harness puts it into effect for the agent's whole life, so that no host sets process-wide
// settings or environment variables around the library.
struct AgentSettings {
  std::string agentName = "MarlTunnel";
  // Mesh split-horizon slots per VLAN domain in the orientation allocator (1 to 4).
  std::uint32_t meshGroups = 4;
  // Entries in the shared HW FEC id response table at start: non-zero makes the agent start
  // with clean slate false, as after an agent restart.
  std::uint32_t hwFecIdResponses = 0;
  // Whether the emulated chip turns decap requests into the table shadows from the start.
  // Without it the requests stay requests, as in an agent whose chip programming runs elsewhere.
  bool chip = true;
  // The rows of the chip's in-LIF table (1 to 131071): fewer make a small chip for tests.
  std::uint32_t chipRows = Hardware::Marl::AradIhpLifTable::kMaxLifIndex;
  // The scheduler the agent runs on, when its host made it before the agent (a daemon whose
  // loop also carries its database connections); none: the harness makes its own.
  Loom::Ptr<Orb::TaskSchedulerRoot> scheduler;
  // Where the agent's command socket is served; none: the process's default ($MARL_SOCKET_DIR,
  // else /tmp/marl-sockets).
  std::optional<std::filesystem::path> socketDir;
  // Where the agent reads its toggle files; none: the process's default ($MARL_TOGGLE_DIR, else
  // /etc/marl/toggles). A directory given here is read afresh, as by a new agent process.
  std::optional<std::filesystem::path> toggleDir;
  // Where the library's structured log messages go; none: the platform's sink (stderr).
  Cog::LogSink logSink;
};

}  // namespace Host
