#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/UsageError.h"

namespace Sim {

// The runner's command line:
//   vpls-decap-sim run SCENARIO.json [--json] [--each] [--trace-level N] [--trace-file PATH]
//                                    [--flashlog PATH]
//   vpls-decap-sim serve SCENARIO.json [--socket-dir DIR] [the same options]
//   vpls-decap-sim --version
// Options may come before or after the scenario and also as --option=VALUE. The scenario "-" is
// standard input.
struct CommandLine {
  enum class Mode { run, serve, help, version };
  Mode mode = Mode::help;
  std::string scenario;
  bool json = false;
  bool each = false;
  std::optional<int> traceLevel;  // 0..9, of the library's facility "MarlTunnel"
  std::optional<std::string> traceFile;
  std::optional<std::string> flashlog;
  std::optional<std::string> socketDir;  // serve only
};

// The usage text, several lines ending in a newline.
std::string usage();

// Parses the arguments after the program name; Host::UsageError names what is wrong.
CommandLine parseCommandLine(std::vector<std::string> const& args);

}  // namespace Sim
