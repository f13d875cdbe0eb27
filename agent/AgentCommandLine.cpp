#include "agent/AgentCommandLine.h"

#include <charconv>
#include <functional>
#include <map>
#include <string_view>

#include "host/UsageError.h"

namespace VplsAgent {
namespace {

using Host::UsageError;

long long integer(std::string const& option, std::string const& text, long long min,
                  long long max) {
  long long value = 0;
  auto const [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size() || value < min || value > max) {
    throw UsageError(option + ": '" + text + "' is not a number from " + std::to_string(min) +
                     " to " + std::to_string(max));
  }
  return value;
}

}  // namespace

std::string agentUsage() {
  return "usage: vpls-decap-agent --redis URL [--db N] [--socket-dir DIR] [--mesh-groups N]\n"
         "                        [--chip-rows N] [--flashlog PATH] [--trace-level N]\n"
         "                        [--trace-file PATH]\n"
         "                        [--record FILE] [--redis-user NAME]\n"
         "                        [--redis-password-file PATH]\n"
         "       vpls-decap-agent --version\n"
         "\n"
         "Runs the VPLS decap agent on a Redis state database until SIGTERM or SIGINT.\n"
         "\n"
         "  --redis URL        the state database: unix:///path/redis.sock or redis://host:port\n"
         "  --db N             the database number (default 0)\n"
         "  --socket-dir DIR   the command socket's directory (default $MARL_SOCKET_DIR or\n"
         "                     /tmp/marl-sockets)\n"
         "  --mesh-groups N    mesh split-horizon slots per VLAN domain, 1..4 (default 4)\n"
         "  --chip-rows N      rows of the emulated chip's in-LIF table, 1..131071 (default\n"
         "                     131071); decap entries beyond them wait for the chip\n"
         "  --flashlog PATH    record the binary trace into PATH\n"
         "  --trace-level N    text traces of the library up to level N (0..9)\n"
         "  --trace-file PATH  append the text traces to PATH instead of stderr\n"
         "  --record FILE      write the inputs found at start-up and every input change\n"
         "                     applied, for `vpls-decap-sim run FILE`\n"
         "  --redis-user NAME  authenticate as this access-control user of the server\n"
         "  --redis-password-file PATH\n"
         "                     the password, the file's first line; the file must not be\n"
         "                     readable by others (mode 0600 or 0400)\n"
         "\n"
         "Exit codes: 0 stopped by a signal, 1 the agent could not run, 2 usage.\n"
         "Manual page: vpls-decap-agent(8); keys and fields: agent.md in the documentation.\n";
}

AgentCommandLine parseAgentCommandLine(std::vector<std::string> const& args) {
  AgentCommandLine line;
  bool haveRedis = false;
  using Setter = std::function<void(std::string const& option, std::string const& value)>;
  std::map<std::string, Setter, std::less<>> const options{
      {"--redis",
       [&](auto const&, auto const& v) {
         try {
           line.redis = DbLink::parseRedisUrl(v);
         } catch (DbLink::RedisUrlError const& e) {
           throw UsageError(std::string("--redis: ") + e.what());
         }
         haveRedis = true;
       }},
      {"--db",
       [&](auto const& o, auto const& v) { line.db = static_cast<int>(integer(o, v, 0, 65535)); }},
      {"--socket-dir", [&](auto const&, auto const& v) { line.socketDir = v; }},
      {"--mesh-groups",
       [&](auto const& o, auto const& v) {
         line.meshGroups = static_cast<std::uint32_t>(integer(o, v, 1, 4));
       }},
      {"--chip-rows",
       [&](auto const& o, auto const& v) {
         line.chipRows = static_cast<std::uint32_t>(
             integer(o, v, 1, Hardware::Marl::AradIhpLifTable::kMaxLifIndex));
       }},
      {"--flashlog", [&](auto const&, auto const& v) { line.flashlog = v; }},
      {"--trace-level",
       [&](auto const& o, auto const& v) {
         line.traceLevel = static_cast<int>(integer(o, v, 0, 9));
       }},
      {"--trace-file", [&](auto const&, auto const& v) { line.traceFile = v; }},
      {"--record", [&](auto const&, auto const& v) { line.record = v; }},
      {"--redis-user", [&](auto const&, auto const& v) { line.redisUser = v; }},
      {"--redis-password-file", [&](auto const&, auto const& v) { line.passwordFile = v; }},
  };
  for (std::size_t i = 0; i < args.size(); ++i) {
    std::string option = args[i];
    if (option == "-h" || option == "--help") {
      line.help = true;
      return line;
    }
    if (option == "--version") {
      line.version = true;
      return line;
    }
    std::optional<std::string> inlineValue;
    if (auto const eq = option.find('='); option.starts_with("--") && eq != std::string::npos) {
      inlineValue = option.substr(eq + 1);
      option.erase(eq);
    }
    auto const it = options.find(option);
    if (it == options.end()) {
      throw UsageError(option.starts_with("-") ? "unknown option '" + option + "'"
                                               : "unexpected argument '" + option + "'");
    }
    if (!inlineValue && i + 1 >= args.size()) {
      throw UsageError(option + ": missing value");
    }
    std::string const value = inlineValue ? *inlineValue : args[++i];
    if (value.empty()) {
      throw UsageError(option + ": empty value");
    }
    it->second(option, value);
  }
  if (!haveRedis) {
    throw UsageError("missing --redis URL");
  }
  if (line.redisUser && !line.passwordFile) {
    throw UsageError("--redis-user needs --redis-password-file");
  }
  return line;
}

}  // namespace VplsAgent
