#include "sim/CommandLine.h"

#include <charconv>
#include <string_view>

namespace Sim {
namespace {

constexpr int kMaxTraceLevel = 9;

int traceLevel(std::string const& text) {
  int level = -1;
  auto const [end, ec] = std::from_chars(text.data(), text.data() + text.size(), level);
  if (text.empty() || ec != std::errc() || end != text.data() + text.size() || level < 0 ||
      level > kMaxTraceLevel) {
    throw Host::UsageError("--trace-level: '" + text + "' is not a level from 0 to 9");
  }
  return level;
}

}  // namespace

std::string usage() {
  return "usage: vpls-decap-sim run SCENARIO.json [--json] [--each] [--trace-level N]\n"
         "                          [--trace-file PATH] [--flashlog PATH]\n"
         "       vpls-decap-sim serve SCENARIO.json [--socket-dir DIR] [--json] [--each]\n"
         "                          [--trace-level N] [--trace-file PATH] [--flashlog PATH]\n"
         "       vpls-decap-sim --version\n"
         "\n"
         "  run     validate the scenario, start the agent, apply its events, print the result\n"
         "  serve   like run, then serve the agent command socket DIR/MarlTunnelVpls until\n"
         "          SIGINT or SIGTERM\n"
         "  SCENARIO.json is a scenario or a recording; - reads it from standard input.\n"
         "\n"
         "  --json            the final state as one JSON object instead of the tables\n"
         "  --each            a result after start-up and after every event (with --json:\n"
         "                    one JSON object per line)\n"
         "  --trace-level N   text traces of the library up to level N (0..9)\n"
         "  --trace-file PATH append the text traces to PATH instead of stderr\n"
         "  --flashlog PATH   record the binary trace into PATH and keep it (also kept in\n"
         "                    $MARL_FLASHLOG_DIR when set; otherwise it goes to a private\n"
         "                    directory removed at exit)\n"
         "  --socket-dir DIR  the command socket's directory (serve; default $MARL_SOCKET_DIR\n"
         "                    or /tmp/marl-sockets)\n"
         "\n"
         "Exit codes: 0 done, 1 the library raised an exception, 2 invalid scenario or usage.\n"
         "Manual page: vpls-decap-sim(1); scenario files: scenarios.md in the documentation.\n";
}

CommandLine parseCommandLine(std::vector<std::string> const& args) {
  CommandLine line;
  if (args.empty()) {
    throw Host::UsageError("missing command (run or serve)");
  }
  std::string const& command = args.front();
  if (command == "-h" || command == "--help" || command == "help") {
    return line;
  }
  if (command == "--version") {
    line.mode = CommandLine::Mode::version;
    return line;
  }
  if (command == "run") {
    line.mode = CommandLine::Mode::run;
  } else if (command == "serve") {
    line.mode = CommandLine::Mode::serve;
  } else {
    throw Host::UsageError("unknown command '" + command + "' (expected run or serve)");
  }

  bool haveScenario = false;
  for (std::size_t i = 1; i < args.size(); ++i) {
    std::string option = args[i];
    std::optional<std::string> inlineValue;
    if (option.starts_with("--")) {
      if (auto const eq = option.find('='); eq != std::string::npos) {
        inlineValue = option.substr(eq + 1);
        option.erase(eq);
      }
    }
    auto const value = [&]() -> std::string {
      if (!inlineValue && i + 1 >= args.size()) {
        throw Host::UsageError(option + ": missing value");
      }
      std::string text = inlineValue ? *inlineValue : args[++i];
      if (text.empty()) {
        throw Host::UsageError(option + ": empty value");
      }
      return text;
    };
    auto const flag = [&](bool& target) {
      if (inlineValue) {
        throw Host::UsageError(option + ": takes no value");
      }
      target = true;
    };
    if (option == "--json") {
      flag(line.json);
    } else if (option == "--each") {
      flag(line.each);
    } else if (option == "--trace-level") {
      line.traceLevel = traceLevel(value());
    } else if (option == "--trace-file") {
      line.traceFile = value();
    } else if (option == "--flashlog") {
      line.flashlog = value();
    } else if (option == "--socket-dir") {
      if (line.mode != CommandLine::Mode::serve) {
        throw Host::UsageError("--socket-dir: only for serve");
      }
      line.socketDir = value();
    } else if (option == "-h" || option == "--help") {
      line.mode = CommandLine::Mode::help;
      return line;
    } else if (option.starts_with("-") && option != "-") {
      throw Host::UsageError("unknown option '" + option + "'");
    } else if (haveScenario) {
      throw Host::UsageError("more than one scenario file ('" + line.scenario + "' and '" + option +
                             "')");
    } else {
      line.scenario = option;
      haveScenario = true;
    }
  }
  if (!haveScenario) {
    throw Host::UsageError("missing scenario file");
  }
  return line;
}

}  // namespace Sim
