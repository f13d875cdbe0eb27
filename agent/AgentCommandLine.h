#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Hardware/AradIhpLifTable.h"
#include "dblink/RedisUrl.h"

namespace VplsAgent {

// The daemon's command line:
//   vpls-decap-agent --redis URL [--db N] [--socket-dir DIR] [--mesh-groups N] [--chip-rows N]
//                    [--flashlog PATH] [--trace-level N] [--trace-file PATH] [--record FILE]
//                    [--redis-user NAME] [--redis-password-file PATH]
//   vpls-decap-agent --version
// Options also as --option=VALUE.
struct AgentCommandLine {
  bool help = false;
  bool version = false;
  DbLink::RedisEndpoint redis;
  int db = 0;
  std::optional<std::string> socketDir;
  std::uint32_t meshGroups = 4;
  // The rows of the emulated chip's in-LIF table.
  std::uint32_t chipRows = Hardware::Marl::AradIhpLifTable::kMaxLifIndex;
  std::optional<std::string> flashlog;
  std::optional<int> traceLevel;
  std::optional<std::string> traceFile;
  std::optional<std::string> record;
  // An access-control user of the server, and the file holding its password (or the default
  // user's password without a user). The password itself is never on the command line.
  std::optional<std::string> redisUser;
  std::optional<std::string> passwordFile;
};

// The usage text, several lines ending in a newline.
std::string agentUsage();

// Parses the arguments after the program name; Host::UsageError names what is wrong.
AgentCommandLine parseAgentCommandLine(std::vector<std::string> const& args);

}  // namespace VplsAgent
