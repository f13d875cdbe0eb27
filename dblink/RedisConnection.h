#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Orb/TaskSchedulerRoot.h"
#include "Orb/UniqueFd.h"
#include "dblink/RedisReply.h"
#include "dblink/RedisUrl.h"

struct redisReader;

namespace DbLink {

// Appends one command in the server's wire format (an array of binary-safe bulk strings).
void appendCommand(std::string& out, std::vector<std::string> const& args);
void appendCommand(std::string& out, std::initializer_list<std::string_view> args);

// One connection to a Redis server, driven by the agent's scheduler: the socket is
// non-blocking, connecting, writing and reading all happen in the scheduler's rounds, and no
// call blocks. Commands are queued with their reply handler; the queued commands are written
// in one go when the socket is writable, so that a batch of commands costs one system call and
// one round trip (pipelining). Replies are parsed with hiredis's reply reader and handed to the
// handlers in the order the commands were queued.
//
// A connection in subscriber mode (after SUBSCRIBE or PSUBSCRIBE) receives messages that
// answer no command: "message" and "pmessage" arrays received in subscriber mode, and any
// reply that arrives while no command waits, go to the push handler (or are dropped when there
// is none). The server answers a SUBSCRIBE of n channels with n replies, so subscribe one
// channel or pattern per command to keep replies and commands paired.
//
// States: idle -> connecting -> connected -> closed. A failed connect, a reset, an end of file
// or a protocol error closes the connection: every waiting reply handler is called with an
// error reply whose text says what happened ("connection lost: ..."), then the close handler
// runs once with the same text. A closed connection is not reused; the owner makes a new one.
//
// Invariants: handlers run on the scheduler's thread, never inside command() or connect();
// the connection's descriptor is watched by the scheduler exactly while it is open.
// Threading: one thread, the scheduler's.
class RedisConnection {
 public:
  using ReplyHandler = std::function<void(RedisReply&& reply)>;
  using PushHandler = std::function<void(RedisReply&& reply)>;
  using CloseHandler = std::function<void(std::string const& why)>;
  using ConnectHandler = std::function<void()>;

  enum class State : std::uint8_t { idle, connecting, connected, closed };

  RedisConnection(Orb::TaskSchedulerRoot& scheduler, RedisEndpoint endpoint);
  ~RedisConnection();
  RedisConnection(RedisConnection const&) = delete;
  RedisConnection& operator=(RedisConnection const&) = delete;

  // Starts connecting; `connected` runs once the socket is connected, `closed` when the
  // connection fails or ends. A connect that has not finished within `timeout` fails.
  void connect(ConnectHandler connected, CloseHandler closed,
               std::chrono::milliseconds timeout = std::chrono::seconds(5));

  // Queues one command (its arguments, binary-safe) and the handler of its reply. Commands may
  // be queued while connecting; they are written once connected. On a closed connection the
  // handler is called with an error reply in a later scheduler round.
  void command(std::vector<std::string> const& args, ReplyHandler handler);
  // The same without a handler: the reply is read and dropped, except an error reply, which
  // goes to the error handler (if any).
  void command(std::vector<std::string> const& args);
  void errorHandlerIs(std::function<void(RedisReply const&)> handler);

  // Queues commands already in the wire format (appendCommand()) that answer with `replies`
  // replies; `handler` gets each of them in order (on a lost connection, one error reply).
  void formatted(std::string_view commands, std::size_t replies, ReplyHandler handler);

  // Replies that answer no command (subscriber messages).
  void pushHandlerIs(PushHandler handler);

  // Closes the connection now, without calling the close handler; waiting reply handlers are
  // dropped uncalled.
  void close();

  State state() const noexcept { return state_; }
  RedisEndpoint const& endpoint() const noexcept { return endpoint_; }
  // Replies that have not arrived yet.
  std::size_t waitingReplies() const noexcept { return waitingReplies_; }
  // Bytes queued and not yet written to the socket.
  std::size_t unsentBytes() const noexcept { return out_.size() - outSent_; }

 private:
  using ErrorHandler = std::function<void(RedisReply const&)>;

  // Resolves the endpoint into addresses_; returns why it cannot, or "".
  std::string resolve();
  // Starts a non-blocking connect to the next address; returns the last failure when every
  // remaining address failed at once, or "" when one is in progress.
  std::string connectNextAddress();
  void onEvents(short revents);
  void onConnectReady(short revents);
  // Reads what the socket holds and dispatches the complete replies; false when the
  // connection closed or went away meanwhile (`alive` false).
  bool readAndDispatch(bool const& alive);
  bool feed(char const* data, std::size_t size, bool const& alive);
  void dispatch(RedisReply&& reply);
  void flush();
  void watch(short events);
  // Releases the socket and timers; state_ becomes closed.
  void release();
  // Closes with `why`: waiting handlers move to deferred_, the close handler becomes due.
  void closeWith(std::string why);
  // Closes with `why` and calls the handlers now (from a scheduler callback).
  void fail(std::string why);
  void deliverLater();
  void deliverDeferred();

  Orb::TaskSchedulerRoot& scheduler_;
  RedisEndpoint endpoint_;
  State state_ = State::idle;
  // False once the connection is destroyed; callbacks hold a copy and check it after calling
  // out, since any handler may destroy the connection.
  std::shared_ptr<bool> alive_;
  Orb::UniqueFd fd_;
  short watched_ = 0;
  // Socket addresses (raw sockaddr bytes) still to try, in order.
  std::vector<std::string> addresses_;
  std::size_t nextAddress_ = 0;
  std::string lastConnectError_;
  std::chrono::milliseconds connectTimeout_{0};
  Orb::TaskSchedulerRoot::TimerId connectTimer_ = 0;

  std::string out_;
  std::size_t outSent_ = 0;
  // The handlers of the replies to come, in order, each with the number of replies it takes.
  struct Waiting {
    ReplyHandler handler;
    std::size_t replies = 1;
  };
  std::deque<Waiting> waiting_;
  std::size_t waitingReplies_ = 0;
  std::unique_ptr<redisReader, void (*)(redisReader*)> reader_;
  std::unique_ptr<char[]> readBuffer_;
  // Set by SUBSCRIBE/PSUBSCRIBE, cleared when the server reports no subscription left.
  bool subscriber_ = false;

  // Held by shared pointer so that a handler replacing itself while it runs stays intact.
  std::shared_ptr<PushHandler const> pushHandler_;
  std::shared_ptr<ErrorHandler const> errorHandler_;
  CloseHandler closeHandler_;
  ConnectHandler connectHandler_;

  // Once closed: why, the reply handlers still owed an error reply, whether the close handler
  // is still owed its call, and the timer that pays them from a later round.
  std::string closeReason_;
  std::deque<ReplyHandler> deferred_;
  bool closePending_ = false;
  std::size_t waitedAtClose_ = 0;
  Orb::TaskSchedulerRoot::TimerId deferTimer_ = 0;
};

}  // namespace DbLink
