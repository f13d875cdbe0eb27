#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Cog/Log.h"
#include "Loom/Ptr.h"
#include "Orb/TaskSchedulerRoot.h"
#include "agent/AgentCommandLine.h"
#include "agent/Credentials.h"
#include "agent/OutputTracker.h"
#include "agent/Recorder.h"
#include "agent/StateSnapshot.h"
#include "dblink/RedisConnection.h"
#include "dblink/WriteBatch.h"
#include "host/AgentHarness.h"
#include "host/InputChange.h"

namespace VplsAgent {

// A keyspace notification: the key written and the server's name of the write.
struct Notification {
  std::string key;
  std::string event;
};

// The notifications whose keys are being re-read, and what each read found.
struct NotificationRead {
  std::optional<DbLink::Fields> fields;  // none: the key is absent
  std::string error;                     // the key holds another type
};
struct NotificationBatch {
  std::vector<Notification> notifications;
  // Per notification, its read: each key is read once, as every read of the batch comes
  // after all of its notifications.
  std::vector<std::size_t> readOf;
  std::vector<NotificationRead> reads;
  std::size_t waiting = 0;
};

// The VPLS decap agent as a daemon whose shared state lives in a Redis server: other processes
// write its inputs and read its outputs there (docs/agent.md).
//
// One scheduler loop carries everything: the two database connections (commands, and the
// keyspace notifications of the input keys), the command socket of the hosted wrapper, and
// the timers. The agent goes through these states:
//   connecting    until both connections are up (retrying with backoff, one line per change);
//   synchronising subscribed to the notifications, reading every input and output key; the
//                 first time it then starts the wrapper over what it found, later it applies
//                 what changed while it was away; either way it writes only the differences;
//   running       each batch of notifications re-reads its keys, applies them to the inputs
//                 as every host of the library does, and writes the outputs that changed in one
//                 transaction, with the barrier's token after them.
// A lost connection goes back to connecting; the show command answers from memory meanwhile.
//
// Invariants: a notification is applied only after every notification received before it;
// outputs are written in the order their changes were applied; the barrier's token is written
// only in the transaction that carries the outputs of every change notified before it.
// Threading: the scheduler's thread; stopFromSignal() from a signal handler. The connection
// side is in DecapAgent.cpp, the state side (start-up, catch-up, inputs, writes) in
// DecapAgentState.cpp.
class DecapAgent {
 public:
  DecapAgent(AgentCommandLine config, std::optional<Credentials> credentials);
  ~DecapAgent();
  DecapAgent(DecapAgent const&) = delete;
  DecapAgent& operator=(DecapAgent const&) = delete;

  // Runs until a stop; then finishes the writes under way (for at most a few seconds), stops
  // the wrapper and closes the connections. Returns the process's exit code.
  int run();
  // Async-signal-safe.
  void stopFromSignal() noexcept;

 private:
  enum class State : std::uint8_t { connecting, synchronising, running };
  // The first wait before reconnecting; it doubles up to a limit, and starts again here once
  // the agent is synchronised.
  static constexpr std::chrono::milliseconds kFirstBackoff{100};
  using Batch = NotificationBatch;
  // Connection lifecycle.
  void connect();
  void connectionUp();
  void connectionReady();
  void connectionLost(std::string const& why);
  void retryLater();
  void configureNotifications();
  void subscribe();
  void onPush(DbLink::RedisReply&& reply);

  // Synchronisation.
  void synchronise();
  void onSnapshot(StateSnapshot&& found);
  void startWrapper(StateSnapshot const& found);
  void catchUp(StateSnapshot const& found);
  std::vector<Host::InputChange> decodeInputs(StateSnapshot const& found);
  // Writes what differs between memory and what was found; returns the number of keys.
  std::size_t writeDifferences(StateSnapshot& found);

  // Notifications.
  void scheduleBatch();
  void nextBatch();
  void onRead(std::size_t read, DbLink::RedisReply&& reply);
  void applyBatch(Batch& batch);
  void applyKey(std::string const& key, DbLink::Fields const* fields, std::string const& error);
  void apply(std::string const& key, Host::InputChange const& change);
  void libraryError(std::string const& key, std::string const& what);

  // Writes.
  void flush();
  void appendDecapConfig(DbLink::WriteBatch& batch);
  void appendAgentStatus(DbLink::WriteBatch& batch);
  void appendLogs(DbLink::WriteBatch& batch);
  // Sends the batch; every batch's appendLogs() comes right before its send().
  void send(DbLink::WriteBatch& batch);
  // After a lost connection: the log entries of unanswered transactions go out again.
  void resendLogs();

  void say(std::string const& line) const;
  // The library's structured log messages: to stderr, and queued for the log stream.
  void logMessage(Cog::LogMessage const& message, std::vector<std::string> const& args,
                  std::string const& formatted);

  AgentCommandLine const config_;
  std::optional<Credentials> const credentials_;
  Loom::Ptr<Orb::TaskSchedulerRoot> const scheduler_;
  State state_ = State::connecting;
  bool stopping_ = false;
  // The connections of the current attempt; replaced after a loss.
  std::unique_ptr<DbLink::RedisConnection> commands_;
  std::unique_ptr<DbLink::RedisConnection> notifications_;
  std::unique_ptr<SnapshotReader> snapshotReader_;
  Orb::TaskSchedulerRoot::Clock::time_point syncStarted_;
  Orb::TaskSchedulerRoot::TimerId retryTimer_ = 0;
  std::chrono::milliseconds backoff_;
  // The last line said about the connection, so that each change of state is said once.
  std::string connectionNote_;

  // The agent, from the first synchronisation on.
  std::unique_ptr<Host::AgentHarness> harness_;
  std::unique_ptr<OutputTracker> tracker_;
  std::unique_ptr<Recorder> recorder_;

  std::deque<Notification> pending_;
  // The batch whose keys are being re-read, if any.
  std::optional<Batch> batch_;
  Orb::TaskSchedulerRoot::TimerId batchTimer_ = 0;
  // Counts connection losses: a reply handler of an earlier connection does nothing.
  std::uint64_t generation_ = 0;
  std::size_t connectionsUp_ = 0;
  // Notifications of the agent's own writes to VPLS_DECAP_CONFIG that are still to come.
  std::size_t ownDecapConfigWrites_ = 0;
  // What the database holds of VPLS_DECAP_CONFIG, as read (bad fields at their default).
  bool heldStartupSyncDone_ = false;
  bool heldRestartDone_ = false;

  // The barrier and the agent status: the last token handled, the errors counted; and what
  // the database holds of them.
  std::optional<std::string> syncToken_;
  std::uint64_t errors_ = 0;
  std::string lastError_;
  std::optional<DbLink::Fields> heldAgentStatus_;
  // Structured log messages not yet written to the log stream.
  std::deque<std::pair<std::string, std::string>> logs_;
  std::uint64_t logsDropped_ = 0;
  // The log entries of each transaction sent and not yet answered, oldest first.
  std::deque<std::vector<std::pair<std::string, std::string>>> logsSent_;
};

}  // namespace VplsAgent
