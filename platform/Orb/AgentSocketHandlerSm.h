#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/String.h"
#include "Loom/TypeData.h"
#include "Orb/AgentSocketCallback.h"
#include "Orb/TaskSchedulerRoot.h"
#include "Orb/UniqueFd.h"

namespace Orb {

// An agent's command socket: a Unix stream socket `<socketDir()>/<name>` (mode 0600) served
// inside the root scheduler's loop (TaskSchedulerRoot::root()), without threads.
//
// Protocol: one request per connection, one line "<command> <argument text>\n" (leading blanks
// ignored; the command is the first word; the argument text is everything after the blank that
// ends it, possibly empty; a "\r" before the newline is dropped). The handler calls the
// command's callback, sends what it wrote, and closes the connection. Anything else gets one
// line "error: ...\n" (best effort) and a closed connection: an empty line, an unknown command,
// a line longer than the request limit, a connection that ends before its newline, a request
// not complete within the request timeout, an answer that reaches the answer limit. A client
// that stops reading for the stall timeout, or that goes away, is dropped. Clients beyond the
// connection limit wait in the listen backlog and are accepted as connections close.
//
// Nothing blocks the agent: the socket and every connection are non-blocking; a callback
// writes into an in-memory buffer (a sealed memfd as large as the answer limit, so that a
// runaway answer fails its writes instead of growing), from which the answer is streamed as
// the client reads it. Every send uses MSG_NOSIGNAL, so a vanished client raises no SIGPIPE.
// Every connection's descriptor is closed exactly once.
//
// Invariants: while notification is active the handler owns the socket file and a listening
// socket registered with the scheduler it holds; while inactive it has no descriptors, no
// handlers and no timers. Only the socket file it created is ever removed. Within one
// process the handler that opens a path last owns it: an older active handler of the same path
// is switched off. Callbacks are keyed by command, at most one each.
//
// Threading: runs on the root scheduler's thread; socketDir()/socketDirIs() from any thread.
class AgentSocketHandlerSm : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Orb::AgentSocketHandlerSm";
  static constexpr char kSocketDirEnv[] = "MARL_SOCKET_DIR";
  static constexpr char kDefaultSocketDir[] = "/tmp/marl-sockets";

  // The handler's limits; a change applies to connections accepted afterwards.
  struct Limits {
    std::size_t maxRequestBytes = 4096;                   // request line, without its newline
    std::chrono::milliseconds requestTimeout{5000};       // from accept to a complete request line
    std::chrono::milliseconds stallTimeout{10000};        // answer sending without progress
    std::size_t maxAnswerBytes = std::size_t{256} << 20;  // answers must stay below this
    std::size_t maxConnections = 32;                      // open at the same time
  };

  // std::invalid_argument when `name` cannot name a file in the socket directory.
  static Loom::Ptr<AgentSocketHandlerSm> AgentSocketHandlerSmIs(Loom::String const& name);
  explicit AgentSocketHandlerSm(Loom::String name);
  ~AgentSocketHandlerSm() override;

  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }

  // The process's socket directory: what socketDirIs() set, else $MARL_SOCKET_DIR when set
  // and not empty, else /tmp/marl-sockets. socketDirIs("") returns to the environment and the
  // default. Read when a handler's notification turns on.
  static void socketDirIs(std::string dir);
  static std::string socketDir();

  Loom::String const& name() const noexcept { return name_; }
  // The socket file: the one bound while active, else the one that activation would bind.
  std::string socketPath() const;

  bool hasNotificationActive() const noexcept {
    return nodeFlag(Loom::NodeFlag::notificationActive);
  }
  // true: creates the socket directory if missing (mode 0700), replaces a stale socket file
  // left by a dead agent, binds and listens, and registers with the root scheduler.
  // std::logic_error when there is no root scheduler; std::system_error naming the path when
  // the socket cannot be opened, including when a live agent of another process serves it.
  // false: closes the socket and every open connection and removes the socket file.
  // Repeating the current state does nothing.
  void hasNotificationActiveIs(bool active);

  // Registers `callback` for its command, replacing the previous one of that command.
  // Loom::NullPointerArgumentError for null; std::invalid_argument when the callback names
  // another handler.
  void agentSocketCallbackIs(Loom::Ptr<AgentSocketCallback> callback);
  void agentSocketCallbackDel(Loom::String const& command);
  // The callback of `command`, null when there is none.
  Loom::Ptr<AgentSocketCallback> agentSocketCallback(Loom::String const& command) const;

  // Runs one request line's command and argument text exactly as a connection would and
  // returns the whole answer: what the callback wrote, or the "error: ..." line a client would
  // get (unknown command, failed callback, answer at the limit). Works while inactive too.
  std::string answerText(std::string_view command, std::string_view args) const;

  Limits const& limits() const noexcept { return limits_; }
  void limitsIs(Limits const& limits);

  // Connections currently open (reading their request or receiving their answer).
  std::size_t connectionCount() const noexcept { return connections_.size(); }

 private:
  struct Connection;

  void activate();
  void deactivate() noexcept;
  void pauseAccepting();
  void waitForRoom();
  void onListenerReady();
  void onConnectionReady(std::uint64_t id);
  void readRequest(Connection& connection);
  void dispatch(Connection& connection, std::string_view line);
  void startAnswer(Connection& connection, UniqueFd answer, std::size_t size);
  void sendAnswer(Connection& connection);
  void armTimer(Connection& connection, std::chrono::milliseconds delay, char const* reason);
  void refuse(Connection& connection, std::string_view errorLine);
  void closeConnection(std::uint64_t id) noexcept;

  Loom::String const name_;
  Limits limits_;
  std::map<Loom::String, Loom::Ptr<AgentSocketCallback>> callbacks_;

  // Set while active.
  Loom::Ptr<TaskSchedulerRoot> scheduler_;
  UniqueFd listener_;
  std::string boundPath_;
  dev_t boundDev_ = 0;
  ino_t boundIno_ = 0;
  TaskSchedulerRoot::TimerId acceptRetryTimer_ = 0;
  bool waitingForRoom_ = false;  // at the connection limit: the listener is not watched
  std::map<std::uint64_t, std::unique_ptr<Connection>> connections_;
  std::uint64_t nextConnectionId_ = 1;
  std::vector<char> scratch_;
};

}  // namespace Orb
