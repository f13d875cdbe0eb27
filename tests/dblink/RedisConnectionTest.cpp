// The state database connection against a real redis-server on a private Unix socket: URL
// parsing, pipelining, binary-safe values, subscriber messages, connect failures, a server that
// dies under waiting commands, and owners that destroy the connection from its own handlers.

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Orb/TaskSchedulerRoot.h"
#include "Orb/UniqueFd.h"
#include "RedisServer.h"
#include "dblink/RedisConnection.h"
#include "dblink/RedisUrl.h"

namespace {

using namespace std::chrono_literals;
using DbLink::RedisConnection;
using DbLink::RedisEndpoint;
using DbLink::RedisReply;
using Orb::TaskSchedulerRoot;
using Kind = RedisReply::Kind;

template <class Done>
void runUntil(TaskSchedulerRoot& scheduler, Done done) {
  auto const deadline = std::chrono::steady_clock::now() + 20s;
  while (!done()) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "condition not reached";
    scheduler.runOnce(50ms);
  }
}

TEST(RedisUrl, ParsesGoodUrlsAndNamesTheProblemOfBadOnes) {
  struct Good {
    char const* url;
    char const* unixPath;
    char const* host;
    std::uint16_t port;
    char const* text;
  };
  for (auto const& c : std::vector<Good>{
           {"unix:///run/redis/redis.sock", "/run/redis/redis.sock", "", 6379,
            "unix:///run/redis/redis.sock"},
           {"redis://10.0.0.7", "", "10.0.0.7", 6379, "redis://10.0.0.7:6379"},
           {"REDIS://db-1.example:6380", "", "db-1.example", 6380, "redis://db-1.example:6380"},
           {"redis://[::1]:65535", "", "::1", 65535, "redis://[::1]:65535"},
           {"redis://[fe80::1%eth0]", "", "fe80::1%eth0", 6379, "redis://[fe80::1%eth0]:6379"},
       }) {
    SCOPED_TRACE(c.url);
    RedisEndpoint const e = DbLink::parseRedisUrl(c.url);
    EXPECT_EQ(e.unixPath, c.unixPath);
    EXPECT_EQ(e.host, c.host);
    EXPECT_EQ(e.port, c.port);
    EXPECT_EQ(e.text(), c.text);
    EXPECT_EQ(DbLink::parseRedisUrl(e.text()).text(), c.text);
  }
  struct Bad {
    std::string url;
    char const* problem;
  };
  for (auto const& c : std::vector<Bad>{
           {"rediss://h", "unknown scheme \"rediss\""},
           {"localhost:6379", "no scheme"},
           {"unix://", "empty socket path"},
           {"unix://run/redis.sock", "relative"},
           {"unix:///" + std::string(120, 'x'), "bytes long"},
           {"redis://", "empty host"},
           {"redis://:6379", "empty host"},
           {"redis://h:0", "out of range"},
           {"redis://h:65536", "out of range"},
           {"redis://h:", "empty port"},
           {"redis://h:63x9", "not a number"},
           {"redis://h:+80", "not a number"},
           {"redis://h:6379/0", "not supported"},
           {"redis://h?timeout=1", "not supported"},
           {"redis://user:secret@h:6379", "credentials"},
           {"redis://::1:6379", "brackets"},
           {"redis://[::1", "closing ']'"},
           {"redis://[::1]x", "unexpected \"x\""},
           {"redis://[host]:1", "not an IPv6 address"},
           {"redis://h st", "not a host name"},
       }) {
    SCOPED_TRACE(c.url);
    try {
      DbLink::parseRedisUrl(c.url);
      ADD_FAILURE() << "accepted";
    } catch (DbLink::RedisUrlError const& e) {
      std::string const what = e.what();
      EXPECT_NE(what.find(c.url.substr(0, 20)), std::string::npos) << what;
      EXPECT_NE(what.find(c.problem), std::string::npos) << what;
      EXPECT_EQ(what.find('\n'), std::string::npos) << what;
    }
  }
}

class RedisConnectionTest : public ::testing::Test {
 protected:
  // Connected, or the test fails.
  std::unique_ptr<RedisConnection> connected() {
    auto c = std::make_unique<RedisConnection>(*scheduler, server.endpoint());
    c->connect([] {}, [](std::string const& why) { ADD_FAILURE() << why; });
    runUntil(*scheduler, [&] { return c->state() == RedisConnection::State::connected; });
    return c;
  }
  RedisReply call(RedisConnection& c, std::vector<std::string> const& args) {
    std::optional<RedisReply> reply;
    c.command(args, [&](RedisReply&& r) { reply = std::move(r); });
    runUntil(*scheduler, [&] { return reply.has_value(); });
    return reply.value_or(RedisReply::error("no reply"));
  }

  DbLinkTest::RedisServer server;
  Loom::Ptr<TaskSchedulerRoot> scheduler = TaskSchedulerRoot::TaskSchedulerRootIs();
};

TEST_F(RedisConnectionTest, PipelinedCommandsAreAnsweredInOrder) {
  RedisConnection c(*scheduler, server.endpoint());
  int answered = 0;
  int outOfOrder = 0;
  // Queued before the connection exists: all go out in one write once it does.
  for (int i = 1; i <= 10000; ++i) {
    c.command({"INCR", "counter"}, [&, i](RedisReply&& r) {
      outOfOrder += r.kind != Kind::integer || r.integer != i;
      ++answered;
    });
  }
  c.connect([] {}, [](std::string const& why) { ADD_FAILURE() << why; });
  runUntil(*scheduler, [&] { return answered == 10000; });
  EXPECT_EQ(outOfOrder, 0);
  EXPECT_EQ(c.waitingReplies(), 0u);
  EXPECT_EQ(c.unsentBytes(), 0u);
  EXPECT_EQ(call(c, {"GET", "counter"}).text, "10000");
}

TEST_F(RedisConnectionTest, ValuesAreBinarySafeAndEveryReplyKindConverts) {
  auto c = connected();
  std::string big;
  for (int i = 0; i < 3 * 1024 * 1024; ++i) {
    big += static_cast<char>(i * 7);  // several reads and writes, every byte value
  }
  std::string const small("a\0b\r\nc\r\n", 8);
  EXPECT_EQ(call(*c, {"SET", "big", big}).text, "OK");
  EXPECT_EQ(call(*c, {"SET", small, small}).kind, Kind::status);
  EXPECT_EQ(call(*c, {"GET", "big"}).text, big);
  EXPECT_EQ(call(*c, {"GET", small}).text, small);
  EXPECT_TRUE(call(*c, {"GET", "absent"}).isNil());
  RedisReply const wrongType = call(*c, {"INCR", small});
  EXPECT_TRUE(wrongType.isError());
  EXPECT_NE(wrongType.text.find("not an integer"), std::string::npos);
  EXPECT_EQ(call(*c, {"RPUSH", "list", "x", small}).integer, 2);
  RedisReply const nested = call(*c, {"EVAL", "return {1, {'y', KEYS[1]}}", "1", small});
  ASSERT_EQ(nested.kind, Kind::array);
  ASSERT_EQ(nested.elements.size(), 2u);
  EXPECT_EQ(nested.elements[0].integer, 1);
  ASSERT_EQ(nested.elements[1].elements.size(), 2u);
  EXPECT_EQ(nested.elements[1].elements[1].text, small);
}

TEST_F(RedisConnectionTest, SubscriberMessagesGoToThePushHandlerEvenWhileACommandWaits) {
  auto subscriber = connected();
  std::vector<RedisReply> pushed;
  subscriber->pushHandlerIs([&](RedisReply&& r) { pushed.push_back(std::move(r)); });
  EXPECT_EQ(call(*subscriber, {"PSUBSCRIBE", "chan:*"}).elements.at(0).text, "psubscribe");

  // The publisher runs on its own scheduler, so the messages sit unread in the subscriber's
  // socket when its next command's reply arrives behind them.
  auto const publisherLoop = TaskSchedulerRoot::TaskSchedulerRootIs();
  RedisConnection publisher(*publisherLoop, server.endpoint());
  int published = 0;
  for (int i = 0; i < 100; ++i) {
    publisher.command({"PUBLISH", "chan:" + std::to_string(i % 3), std::to_string(i)},
                      [&](RedisReply&& r) { published += r.integer; });
  }
  publisher.connect([] {}, [](std::string const& why) { ADD_FAILURE() << why; });
  runUntil(*publisherLoop, [&] { return publisher.waitingReplies() == 0; });
  ASSERT_EQ(published, 100);

  RedisReply const second = call(*subscriber, {"PSUBSCRIBE", "other:*"});
  ASSERT_EQ(second.elements.size(), 3u);
  EXPECT_EQ(second.elements[1].text, "other:*");
  EXPECT_EQ(second.elements[2].integer, 2);
  ASSERT_EQ(pushed.size(), 100u);
  for (int i = 0; i < 100; ++i) {
    ASSERT_EQ(pushed[i].elements.size(), 4u);
    EXPECT_EQ(pushed[i].elements[0].text, "pmessage");
    EXPECT_EQ(pushed[i].elements[2].text, "chan:" + std::to_string(i % 3));
    EXPECT_EQ(pushed[i].elements[3].text, std::to_string(i));
  }
}

TEST_F(RedisConnectionTest, ConnectFailuresAreReportedFromALaterRound) {
  // A socket file nobody listens on, and a TCP port nobody listens on.
  std::string const stalePath = server.directory() + "/stale.sock";
  Orb::UniqueFd stale(::socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un unixAddress{};
  unixAddress.sun_family = AF_UNIX;
  std::strcpy(unixAddress.sun_path, stalePath.c_str());
  ASSERT_EQ(::bind(stale.get(), reinterpret_cast<sockaddr*>(&unixAddress), sizeof unixAddress), 0);
  Orb::UniqueFd closedPort(::socket(AF_INET, SOCK_STREAM, 0));
  sockaddr_in tcpAddress{};
  tcpAddress.sin_family = AF_INET;
  tcpAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof tcpAddress;
  ASSERT_EQ(::bind(closedPort.get(), reinterpret_cast<sockaddr*>(&tcpAddress), length), 0);
  ASSERT_EQ(::getsockname(closedPort.get(), reinterpret_cast<sockaddr*>(&tcpAddress), &length), 0);
  std::string const tcpUrl = "redis://127.0.0.1:" + std::to_string(ntohs(tcpAddress.sin_port));

  struct Case {
    std::string url;
    std::string why;
  };
  for (auto const& c : std::vector<Case>{
           {"unix://" + server.directory() + "/missing.sock",
            "cannot connect to unix://" + server.directory() +
                "/missing.sock: No such file or directory"},
           {"unix://" + stalePath,
            "cannot connect to unix://" + stalePath + ": Connection refused"},
           {tcpUrl, "cannot connect to " + tcpUrl + ": Connection refused"},
       }) {
    SCOPED_TRACE(c.url);
    RedisConnection connection(*scheduler, DbLink::parseRedisUrl(c.url));
    std::vector<std::string> events;
    connection.command({"PING"}, [&](RedisReply&& r) { events.push_back("reply " + r.text); });
    connection.connect([&] { events.push_back("connected"); },
                       [&](std::string const& why) { events.push_back("closed " + why); });
    EXPECT_TRUE(events.empty()) << "a handler ran inside connect()";
    runUntil(*scheduler, [&] { return connection.state() == RedisConnection::State::closed; });
    auto const before = events.size();
    connection.command({"PING"}, [&](RedisReply&& r) { events.push_back("late " + r.text); });
    EXPECT_EQ(events.size(), before) << "a handler ran inside command()";
    runUntil(*scheduler, [&] { return events.size() == 3; });
    scheduler->runOnce(10ms);
    EXPECT_EQ(events,
              (std::vector<std::string>{"reply " + c.why, "closed " + c.why, "late " + c.why}));
  }
}

TEST_F(RedisConnectionTest, ServerDeathFailsEveryWaitingCommandThenClosesOnce) {
  auto c = std::make_unique<RedisConnection>(*scheduler, server.endpoint());
  std::vector<std::string> closes;
  c->connect([] {}, [&](std::string const& why) { closes.push_back(why); });
  std::vector<std::string> replies;
  c->command({"BLPOP", "never", "0"}, [&](RedisReply&& r) { replies.push_back(r.text); });
  c->command({"PING"}, [&](RedisReply&& r) { replies.push_back(r.text); });
  runUntil(*scheduler, [&] {
    return c->state() == RedisConnection::State::connected && c->unsentBytes() == 0;
  });
  scheduler->runOnce(20ms);
  EXPECT_EQ(c->waitingReplies(), 2u);  // PING waits behind the blocked BLPOP
  server.stop();
  runUntil(*scheduler, [&] { return !closes.empty(); });
  scheduler->runOnce(20ms);
  ASSERT_EQ(closes.size(), 1u);
  EXPECT_EQ(closes[0].rfind("connection lost: ", 0), 0u) << closes[0];
  EXPECT_EQ(replies, (std::vector<std::string>{closes[0], closes[0]}));
  EXPECT_EQ(c->waitingReplies(), 0u);

  server.restart();
  EXPECT_EQ(call(*connected(), {"PING"}).text, "PONG");
}

TEST_F(RedisConnectionTest, HandlersMayDestroyTheConnection) {
  enum class Where { connect, reply, push, lostReply, close };
  struct Case {
    Where where;
    int calls;  // handler calls up to and including the one that destroys
  };
  for (auto const& test : std::vector<Case>{{Where::connect, 1},
                                            {Where::reply, 2},
                                            {Where::push, 52},
                                            {Where::lostReply, 52},
                                            {Where::close, 54}}) {
    Where const where = test.where;
    SCOPED_TRACE(static_cast<int>(where));
    auto c = std::make_unique<RedisConnection>(*scheduler, server.endpoint());
    RedisConnection& connection = *c;  // used only while c holds it
    int calls = 0;
    auto hit = [&](Where here) {
      ++calls;
      if (here == where) {
        c.reset();
      }
    };
    connection.connect([&] { hit(Where::connect); }, [&](auto const&) { hit(Where::close); });
    connection.pushHandlerIs([&](RedisReply&&) { hit(Where::push); });
    for (int i = 0; i < 50; ++i) {  // answered in one batch
      connection.command({"PING"}, [&](RedisReply&&) { hit(Where::reply); });
    }
    runUntil(*scheduler, [&] { return !c || connection.waitingReplies() == 0; });
    if (c && where == Where::push) {
      connection.command({"SUBSCRIBE", "news"});
      auto const publisher = connected();
      publisher->command({"PUBLISH", "news", "1"});
      publisher->command({"PUBLISH", "news", "2"});
      runUntil(*scheduler, [&] { return !c; });
    }
    if (c) {
      for (int i = 0; i < 2; ++i) {
        connection.command({"BLPOP", "never", "0"}, [&](RedisReply&&) { hit(Where::lostReply); });
      }
      scheduler->runOnce(20ms);
      server.restart();
    }
    runUntil(*scheduler, [&] { return !c; });
    scheduler->runOnce(20ms);
    EXPECT_EQ(calls, test.calls);
  }
}

}  // namespace
