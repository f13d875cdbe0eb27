// The agent command socket, exercised by real clients over AF_UNIX: the protocol, its refusals,
// its limits, large answers and the socket file's life. The scheduler runs in the test's own
// thread (runOnce), interleaved with the clients' non-blocking reads.

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "Loom/Errors.h"
#include "Orb/AgentSocketCallback.h"
#include "Orb/AgentSocketHandlerSm.h"
#include "Orb/TaskSchedulerRoot.h"
#include "Orb/UniqueFd.h"
#include "tests/platform/Trace/TraceTestSupport.h"

namespace {

using namespace std::chrono_literals;
using Orb::AgentSocketCallback;
using Orb::AgentSocketHandlerSm;
using Orb::TaskSchedulerRoot;
using Orb::UniqueFd;

constexpr char kHandler[] = "MarlTunnelVpls";

// A command whose answer the test chooses; by default the argument text and a newline.
class TestCommand : public AgentSocketCallback {
 public:
  using Answer = std::function<void(std::uint32_t fd, Loom::String const& args)>;
  TestCommand(Loom::String handler, Loom::String command, Answer answer = {})
      : AgentSocketCallback(std::move(handler), std::move(command)), answer_(std::move(answer)) {}

  void handleCommand(std::uint32_t fd, Loom::String const& args) override {
    ++calls;
    if (answer_) {
      answer_(fd, args);
      return;
    }
    writeText(fd, args.str() + "\n");
  }

  static void writeText(std::uint32_t fd, std::string const& text) {
    ASSERT_EQ(::write(static_cast<int>(fd), text.data(), text.size()),
              static_cast<ssize_t>(text.size()));
  }

  int calls = 0;

 private:
  Answer answer_;
};

sockaddr_un addressOf(std::string const& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  return address;
}

// A socket bound at `path`, as another agent would leave it; listening when `live`.
UniqueFd boundAt(std::string const& path, bool live) {
  UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM, 0));
  auto const address = addressOf(path);
  EXPECT_EQ(::bind(fd.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);
  if (live) {
    EXPECT_EQ(::listen(fd.get(), 4), 0);
  }
  return fd;
}

class Client {
 public:
  explicit Client(std::string const& path) : fd_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    auto const address = addressOf(path);
    connected_ =
        ::connect(fd_.get(), reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0;
  }
  bool connected() const { return connected_; }

  void send(std::string_view bytes) {
    while (!bytes.empty()) {
      auto const n = ::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
      ASSERT_GT(n, 0) << std::strerror(errno);
      bytes.remove_prefix(static_cast<std::size_t>(n));
    }
  }
  void shutdownWrite() { ::shutdown(fd_.get(), SHUT_WR); }

  // Reads what is there; false once the server has ended the connection (end of file, or a
  // reset after the data).
  bool readSome() {
    char buffer[1 << 16];
    auto const n = ::recv(fd_.get(), buffer, sizeof buffer, MSG_DONTWAIT);
    if (n > 0) {
      received.append(buffer, static_cast<std::size_t>(n));
      return true;
    }
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      return true;
    }
    ended = true;
    return false;
  }

  std::string received;
  bool ended = false;

 private:
  UniqueFd fd_;
  bool connected_ = false;
};

class OrbAgentSocket : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/orb-socket-test-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern), nullptr);
    dir = pattern;
    AgentSocketHandlerSm::socketDirIs(dir);
    TaskSchedulerRoot::rootIs(scheduler.get());
    handler->agentSocketCallbackIs(echo);
  }
  void TearDown() override {
    handler->hasNotificationActiveIs(false);
    TaskSchedulerRoot::rootIs(nullptr);
    AgentSocketHandlerSm::socketDirIs("");
    std::filesystem::remove_all(dir);
  }

  std::string path() const { return dir + "/" + kHandler; }

  void activate() {
    handler->hasNotificationActiveIs(true);
    ASSERT_TRUE(handler->hasNotificationActive());
  }

  void command(char const* name, TestCommand::Answer answer) {
    handler->agentSocketCallbackIs(Loom::make<TestCommand>(kHandler, name, std::move(answer)));
  }

  template <class Change>
  void limitsAre(Change change) {
    auto limits = handler->limits();
    change(limits);
    handler->limitsIs(limits);
  }

  // Runs the scheduler until `done` holds, failing after a generous bound.
  void runUntil(std::function<bool()> const& done) {
    auto const deadline = std::chrono::steady_clock::now() + 20s;
    while (!done()) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "condition not reached";
      scheduler->runOnce(1ms);
    }
  }

  // Runs the scheduler and reads until the server ends the connection.
  void readToEnd(Client& client) {
    runUntil([&] { return !client.readSome(); });
  }

  // One whole exchange: the request bytes, optionally the end of the client's writing, and
  // everything the server answers.
  std::string exchange(std::string_view request, bool endWriting = false) {
    Client client(path());
    EXPECT_TRUE(client.connected());
    client.send(request);
    if (endWriting) {
      client.shutdownWrite();
    }
    readToEnd(client);
    return client.received;
  }

  std::string dir;
  Loom::Ptr<TaskSchedulerRoot> scheduler = TaskSchedulerRoot::TaskSchedulerRootIs();
  Loom::Ptr<AgentSocketHandlerSm> handler = AgentSocketHandlerSm::AgentSocketHandlerSmIs(kHandler);
  Loom::Ptr<TestCommand> echo = Loom::make<TestCommand>(kHandler, "echo");
};

// --- The protocol and its refusals, request by request ------------------------------------

struct RequestCase {
  char const* name;
  std::string request;
  bool endWriting;  // the client shuts its writing down after the request
  std::string answer;
};

class OrbAgentSocketRequest : public OrbAgentSocket,
                              public ::testing::WithParamInterface<RequestCase> {};

TEST_P(OrbAgentSocketRequest, IsAnsweredOrRefusedWithOneLine) {
  activate();
  auto const& c = GetParam();
  EXPECT_EQ(exchange(c.request, c.endWriting), c.answer);
  EXPECT_EQ(handler->connectionCount(), 0u);
}

std::string const kLongest(4096 - 5, 'x');  // "echo " + this is exactly the request limit

INSTANTIATE_TEST_SUITE_P(
    Cases, OrbAgentSocketRequest,
    ::testing::Values(
        RequestCase{"Arguments", "echo hello  world\n", false, "hello  world\n"},
        RequestCase{"NoArguments", "echo\n", false, "\n"},
        RequestCase{"BlanksAndCarriageReturn", " \techo  two\r\n", false, " two\n"},
        RequestCase{"BytesAfterTheNewlineIgnored", "echo one\necho two\n", false, "one\n"},
        RequestCase{"LongestRequest", "echo " + kLongest + "\n", false, kLongest + "\n"},
        RequestCase{"OneByteTooLong", "echo " + kLongest + "y\n", false,
                    "error: request too long\n"},
        RequestCase{"LongWithoutNewline", std::string(5000, 'z'), false,
                    "error: request too long\n"},
        RequestCase{"UnknownCommand", "show all\n", false, "error: unknown command 'show'\n"},
        RequestCase{"CommandsAreCaseSensitive", "ECHO x\n", false,
                    "error: unknown command 'ECHO'\n"},
        RequestCase{"BinaryGarbage", std::string("\x01\xff\x00'\\q rest\n", 12), false,
                    "error: unknown command '\\x01\\xff\\x00\\x27\\x5cq'\n"},
        RequestCase{"EmptyLine", "\n", false, "error: empty request\n"},
        RequestCase{"OnlyBlanks", " \t \r\n", false, "error: empty request\n"},
        RequestCase{"EndWithoutNewline", "echo hi", true, "error: request without newline\n"},
        RequestCase{"EndWithoutAnything", "", true, "error: request without newline\n"}),
    [](auto const& info) { return std::string(info.param.name); });

TEST_F(OrbAgentSocket, CallbacksAreReplacedAndRemovedByCommand) {
  activate();
  EXPECT_EQ(handler->agentSocketCallback("echo"), echo);
  command("echo", [](std::uint32_t fd, auto const& args) {
    TestCommand::writeText(fd, "LOUD " + args.str() + "\n");
  });
  EXPECT_EQ(exchange("echo a\n"), "LOUD a\n");
  EXPECT_EQ(echo->calls, 0);

  handler->agentSocketCallbackDel("echo");
  EXPECT_EQ(handler->agentSocketCallback("echo"), nullptr);
  EXPECT_EQ(exchange("echo a\n"), "error: unknown command 'echo'\n");

  EXPECT_THROW(handler->agentSocketCallbackIs(nullptr), Loom::NullPointerArgumentError);
  EXPECT_THROW(handler->agentSocketCallbackIs(Loom::make<TestCommand>("OtherAgent", "echo")),
               std::invalid_argument);
  EXPECT_THROW(TestCommand(kHandler, "two words"), std::invalid_argument);
  EXPECT_THROW(TestCommand(kHandler, ""), std::invalid_argument);
}

TEST_F(OrbAgentSocket, AnswerAtTheLimitIsRefusedAndARunawayWriterStopped) {
  limitsAre([](auto& limits) { limits.maxAnswerBytes = 1000; });
  activate();
  std::vector<ssize_t> writes;
  command("big", [&](std::uint32_t fd, Loom::String const& args) {
    writes.clear();
    std::string const block(std::stoul(args.str()), 'b');
    writes.push_back(::write(static_cast<int>(fd), block.data(), block.size()));
    writes.push_back(::write(static_cast<int>(fd), "!", 1));
  });
  EXPECT_EQ(exchange("big 998\n"), std::string(998, 'b') + "!");
  EXPECT_EQ(exchange("big 999\n"), "error: answer too large\n");
  EXPECT_EQ(exchange("big 5000\n"), "error: answer too large\n");
  // Far beyond the limit: the buffer stops growing and refuses further writes.
  EXPECT_EQ(exchange("big 8000000\n"), "error: answer too large\n");
  ASSERT_EQ(writes.size(), 2u);
  EXPECT_LT(writes[0], 8000000);
  EXPECT_EQ(writes[1], -1);
}

// A failing command's error follows what it wrote, and the handler goes on serving. That a
// client receives what answerText gives is checked for any request by fuzz/AgentSocketFuzzer.cpp.
TEST_F(OrbAgentSocket, FailingCommandsErrorFollowsWhatItWrote) {
  command("boom", [](std::uint32_t fd, auto const& args) {
    TestCommand::writeText(fd, args.str() + "\n");
    throw std::runtime_error("late");
  });
  EXPECT_EQ(handler->answerText("echo", "a  b"), "a  b\n");
  EXPECT_EQ(handler->answerText("boom", "x"), "x\nerror: command 'boom' failed: late\n");
  EXPECT_EQ(handler->answerText("nope", "y"), "error: unknown command 'nope'\n");
  activate();
  EXPECT_EQ(exchange("boom x\n"), "x\nerror: command 'boom' failed: late\n");
  EXPECT_EQ(exchange("echo on\n"), "on\n");
}

// --- Clients that do not play along ------------------------------------------------------
//
// Clients that leave before or during the answer, or stop reading a large one while others are
// answered, and the descriptors left after all kinds of clients, are checked against the running
// agent with its real limits by tests/reliability/test_hostile_clients.py.

TEST_F(OrbAgentSocket, SilentClientIsClosedAfterTheRequestTimeout) {
  limitsAre([](auto& limits) { limits.requestTimeout = 30ms; });
  activate();
  Client silent(path());
  runUntil([&] { return handler->connectionCount() == 1; });
  runUntil([&] { return handler->connectionCount() == 0; });
  readToEnd(silent);
  EXPECT_EQ(silent.received, "error: request timeout\n");
}

TEST_F(OrbAgentSocket, ConnectionsOverTheLimitWaitTheirTurn) {
  limitsAre([](auto& limits) { limits.maxConnections = 2; });
  activate();
  Client first(path());
  Client second(path());
  runUntil([&] { return handler->connectionCount() == 2; });
  Client third(path());
  third.send("echo 3\n");
  for (int round = 0; round < 20; ++round) {
    scheduler->runOnce(1ms);
  }
  EXPECT_EQ(handler->connectionCount(), 2u);
  EXPECT_TRUE(third.received.empty());
  first.send("echo 1\n");
  readToEnd(first);
  readToEnd(third);
  second.send("echo 2\n");
  readToEnd(second);
  EXPECT_EQ(first.received + second.received + third.received, "1\n2\n3\n");
  runUntil([&] { return handler->connectionCount() == 0; });
}

// --- The socket file ------------------------------------------------------------------------

TEST_F(OrbAgentSocket, SocketFileIsPrivateAndGoesWithItsConnectionsWhenSwitchedOff) {
  std::string const nested = dir + "/a/b";
  AgentSocketHandlerSm::socketDirIs(nested);
  EXPECT_EQ(handler->socketPath(), nested + "/" + kHandler);
  activate();
  struct stat info {};
  ASSERT_EQ(::stat(handler->socketPath().c_str(), &info), 0);
  EXPECT_TRUE(S_ISSOCK(info.st_mode));
  EXPECT_EQ(info.st_mode & 07777, 0600u);
  ASSERT_EQ(::stat(nested.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0700u);
  Client waiting(handler->socketPath());
  runUntil([&] { return handler->connectionCount() == 1; });

  handler->hasNotificationActiveIs(false);
  EXPECT_FALSE(handler->hasNotificationActive());
  EXPECT_EQ(handler->connectionCount(), 0u);
  EXPECT_FALSE(waiting.readSome());
  EXPECT_NE(::access((nested + "/" + kHandler).c_str(), F_OK), 0);
  EXPECT_EQ(scheduler->fdHandlerCount(), 0u);
  EXPECT_EQ(scheduler->timerCount(), 0u);
}

TEST_F(OrbAgentSocket, CallbackMaySwitchItsHandlerOff) {
  activate();
  command("quit", [&](std::uint32_t fd, auto const&) {
    TestCommand::writeText(fd, "bye\n");
    handler->hasNotificationActiveIs(false);
  });
  Client client(path());
  client.send("quit\n");
  runUntil([&] { return !handler->hasNotificationActive(); });
  readToEnd(client);
  EXPECT_EQ(client.received, "");
  EXPECT_EQ(scheduler->fdHandlerCount(), 0u);
}

TEST_F(OrbAgentSocket, StaleSocketIsReplacedButALiveOneOrAPlainFileIsNot) {
  boundAt(path(), false);  // a dead agent's socket: bound, never served any more
  activate();
  EXPECT_EQ(exchange("echo replaced\n"), "replaced\n");
  handler->hasNotificationActiveIs(false);

  // Another process's live agent: listening on the path, unknown to this process's handlers.
  auto const live = boundAt(path(), true);
  try {
    handler->hasNotificationActiveIs(true);
    ADD_FAILURE() << "took a live agent's socket";
  } catch (std::system_error const& e) {
    EXPECT_EQ(e.code().value(), EADDRINUSE);
    EXPECT_NE(std::string(e.what()).find(path()), std::string::npos) << e.what();
  }
  EXPECT_FALSE(handler->hasNotificationActive());
  EXPECT_EQ(::access(path().c_str(), F_OK), 0) << "the live agent's socket stays";
  EXPECT_EQ(scheduler->fdHandlerCount(), 0u);

  // Something that is not a socket is never removed.
  std::filesystem::remove(path());
  std::fclose(std::fopen(path().c_str(), "w"));
  EXPECT_THROW(handler->hasNotificationActiveIs(true), std::system_error);
  EXPECT_FALSE(handler->hasNotificationActive());
  EXPECT_TRUE(std::filesystem::is_regular_file(path()));
}

TEST_F(OrbAgentSocket, NewerHandlerOfThisProcessTakesTheSocketOver) {
  activate();
  auto const newer = AgentSocketHandlerSm::AgentSocketHandlerSmIs(kHandler);
  newer->agentSocketCallbackIs(Loom::make<TestCommand>(
      kHandler, "echo",
      [](std::uint32_t fd, auto const&) { TestCommand::writeText(fd, "newer\n"); }));
  newer->hasNotificationActiveIs(true);
  EXPECT_FALSE(handler->hasNotificationActive());
  EXPECT_EQ(exchange("echo x\n"), "newer\n");
  // The older one going away does not touch the newer one's file.
  handler->hasNotificationActiveIs(false);
  handler = AgentSocketHandlerSm::AgentSocketHandlerSmIs(kHandler);
  EXPECT_EQ(exchange("echo x\n"), "newer\n");
  newer->hasNotificationActiveIs(false);
}

TEST_F(OrbAgentSocket, ActivationNeedsARootSchedulerAndAUsablePath) {
  TaskSchedulerRoot::rootIs(nullptr);
  EXPECT_THROW(handler->hasNotificationActiveIs(true), std::logic_error);
  TaskSchedulerRoot::rootIs(scheduler.get());
  AgentSocketHandlerSm::socketDirIs(dir + "/" + std::string(120, 'd'));
  EXPECT_THROW(handler->hasNotificationActiveIs(true), std::invalid_argument);
  EXPECT_FALSE(handler->hasNotificationActive());
  EXPECT_THROW(AgentSocketHandlerSm::AgentSocketHandlerSmIs("a/b"), std::invalid_argument);
  EXPECT_THROW(AgentSocketHandlerSm::AgentSocketHandlerSmIs(".."), std::invalid_argument);
  EXPECT_THROW(AgentSocketHandlerSm::AgentSocketHandlerSmIs(""), std::invalid_argument);
}

TEST_F(OrbAgentSocket, SocketDirectoryComesFromTheSettingTheEnvironmentOrTheDefault) {
  AgentSocketHandlerSm::socketDirIs("");
  for (auto const& [value, expected] : {std::pair{"/run/agents", "/run/agents"},
                                        {"", "/tmp/marl-sockets"},
                                        {nullptr, "/tmp/marl-sockets"}}) {
    TraceTest::ScopedEnv const env(AgentSocketHandlerSm::kSocketDirEnv,
                                   value ? std::optional<std::string>(value) : std::nullopt);
    EXPECT_EQ(AgentSocketHandlerSm::socketDir(), expected) << (value ? value : "unset");
  }
  AgentSocketHandlerSm::socketDirIs(dir);
  EXPECT_EQ(AgentSocketHandlerSm::socketDir(), dir);
}

}  // namespace
