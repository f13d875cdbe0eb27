// Fuzzes the agent command socket's request path: the input is what a client sends on one
// connection to the agent of ShowAgent (programmed pseudowires, the show command registered by
// the wrapper); the client then ends its side and reads the answer to the end.
//
// Properties: the connection is answered and closed, and no connection, descriptor handler or
// timer stays behind; the answer is the one the protocol (Orb/AgentSocketHandlerSm.h) gives for the
// bytes: the refusals for a request without newline, an over-long and an empty line, else the
// answer of the first line's command and argument text as answerText gives it, which for the show
// command is the filtered table ShowAgent expects.

#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "FuzzCheck.h"
#include "MarlTunnel/VplsSmWrapper.h"
#include "Orb/UniqueFd.h"
#include "fuzz/ShowAgent.h"

namespace {

using namespace std::chrono_literals;

// Short enough that the fuzzer reaches it with inputs of libFuzzer's default length.
constexpr std::size_t kMaxRequestBytes = 300;
// Scheduler rounds a request may take before it counts as unanswered.
constexpr int kMaxRounds = 10000;

Fuzz::ShowAgent& agent() {
  static Fuzz::ShowAgent& shared = []() -> Fuzz::ShowAgent& {
    auto& a = Fuzz::ShowAgent::instance();
    auto limits = a.socket().limits();
    limits.maxRequestBytes = kMaxRequestBytes;
    a.socket().limitsIs(limits);
    return a;
  }();
  return shared;
}

// The answer the protocol gives for what the client sent.
std::string expectedAnswer(std::string_view sent) {
  auto const newline = sent.find('\n');
  if (newline == std::string_view::npos || newline > kMaxRequestBytes) {
    return sent.size() > kMaxRequestBytes ? "error: request too long\n"
                                          : "error: request without newline\n";
  }
  auto line = sent.substr(0, newline);
  if (!line.empty() && line.back() == '\r') {
    line.remove_suffix(1);
  }
  auto const start = line.find_first_not_of(" \t");
  if (start == std::string_view::npos) {
    return "error: empty request\n";
  }
  line.remove_prefix(start);
  auto const end = line.find_first_of(" \t");
  auto const command = line.substr(0, end);
  auto const args = end == std::string_view::npos ? std::string_view() : line.substr(end + 1);
  auto const answer = agent().socket().answerText(command, args);
  if (command == Hardware::MarlTunnel::VplsSmWrapper::kShowCommand) {
    Fuzz::require(answer == agent().expectedShow(args),
                  "the show command's answer does not follow its filters");
  }
  return answer;
}

Orb::UniqueFd connectToAgent() {
  Orb::UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  auto const path = agent().socket().socketPath();
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  Fuzz::require(
      fd && ::connect(fd.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0,
      "cannot connect to the agent socket");
  return fd;
}

// Sends `bytes`, ends the client's side, and reads until the agent closes the connection,
// running the agent's scheduler in between.
std::string exchange(std::string_view bytes) {
  auto const client = connectToAgent();
  auto& scheduler = agent().scheduler();
  std::string received;
  bool writing = true;
  char buffer[4096];
  for (int round = 0; round < kMaxRounds; ++round) {
    scheduler.runOnce(0ms);
    while (writing && !bytes.empty()) {
      auto const n = ::send(client.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (n <= 0) {
        break;  // the buffer is full, or the agent has stopped reading
      }
      bytes.remove_prefix(static_cast<std::size_t>(n));
    }
    if (writing && bytes.empty()) {
      ::shutdown(client.get(), SHUT_WR);
      writing = false;
    }
    for (;;) {
      auto const n = ::recv(client.get(), buffer, sizeof buffer, 0);
      if (n > 0) {
        received.append(buffer, static_cast<std::size_t>(n));
        continue;
      }
      if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
        return received;
      }
      break;
    }
  }
  Fuzz::fail("the agent neither answered nor closed the connection");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  // What the agent's loop watches while no client is connected, taken before the first one.
  static std::size_t const idleHandlers = agent().scheduler().fdHandlerCount();
  static std::size_t const idleTimers = agent().scheduler().timerCount();
  std::string_view const sent(reinterpret_cast<char const*>(data), size);
  auto const answer = exchange(sent);
  Fuzz::require(answer == expectedAnswer(sent), "the connection got another answer: " + answer);
  Fuzz::require(agent().socket().connectionCount() == 0, "a connection stayed open");
  Fuzz::require(agent().scheduler().fdHandlerCount() == idleHandlers &&
                    agent().scheduler().timerCount() == idleTimers,
                "a served connection left a handler or a timer behind");
  return 0;
}
