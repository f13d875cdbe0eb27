#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Cog/Log.h"
#include "Loom/Ptr.h"
#include "Orb/TaskSchedulerRoot.h"
#include "agent/AgentCommandLine.h"
#include "agent/Credentials.h"
#include "agent/Lease.h"
#include "agent/OutputTracker.h"
#include "agent/Recorder.h"
#include "agent/ServiceNotifier.h"
#include "agent/StandInSocket.h"
#include "agent/StateSnapshot.h"
#include "agent/StderrLog.h"
#include "dblink/RedisConnection.h"
#include "dblink/WriteBatch.h"
#include "host/AgentHarness.h"
#include "host/InputChange.h"

namespace VplsAgent {

// What the notification connection delivered, in the order it arrived: a keyspace
// notification of an input key (re-read, then applied); a key of the agent's that another
// client wrote or deleted (written again from memory); or a barrier whose checks are done
// (its token is acknowledged once everything before it is written).
struct Notification {
  enum class Kind : std::uint8_t { input, foreignWrite, barrier };
  Kind kind = Kind::input;
  std::string key;  // the key; a barrier's token
  std::string event;
};

// The notifications whose keys are being re-read, and what each read found.
struct NotificationRead {
  std::optional<DbLink::Fields> fields;  // none: the key is absent
  std::string error;                     // the key holds another type
};
struct NotificationBatch {
  static constexpr std::size_t kNoRead = ~std::size_t{0};
  std::vector<Notification> notifications;
  // Per notification, its read (kNoRead for one that needs none): each key is read once, as
  // every read of the batch comes after all of its notifications.
  std::vector<std::size_t> readOf;
  std::vector<NotificationRead> reads;
  std::size_t waiting = 0;
};

// The VPLS decap agent as a daemon whose shared state lives in a Redis server: other processes
// write its inputs and read its outputs there (docs/agent.md).
//
// One scheduler loop carries everything: the two database connections (commands, and the
// keyspace notifications of the input keys with the server's reports of other clients' writes
// to the agent's keys), the command socket, and the timers. The agent goes through these
// states:
//   connecting    until both connections are up (retrying with backoff, one line per change);
//                 then it makes sure the server notifies what it needs, subscribes, and asks
//                 to be told of other clients' writes to its keys;
//   standingBy    another agent holds the lease: nothing is written, the show command answers
//                 that the agent stands by, and the lease is tried again until it lapses;
//   synchronising holding the lease, reading every input and output key; the first time (or
//                 after standing by or being blocked) it then starts the wrapper over what it
//                 found, later it applies what changed while it was away; either way it
//                 writes only the differences;
//   running       each batch of notifications re-reads its keys, applies them to the inputs
//                 as every host of the library does, and writes the outputs that changed in
//                 one transaction;
//   blocked       the library raised while starting: the agent says so in its status and on
//                 its command socket, writes no outputs, and starts again when an input
//                 changes.
// A lost connection, a write the server refused, a FLUSHDB and a change of the server's
// configuration by another client (notifications may have been off meanwhile) all go back to
// connecting, with backoff: reading everything again is what repairs each of them.
// A server that refuses the database asked for (--db) stops the agent with the usage exit code:
// it never runs on another database. The service manager hears that the agent is ready once
// it is settled (running with its first synchronisation written, standing by, or blocked),
// what it is doing, and that it stops when the orderly stop begins.
//
// Invariants: a notification is applied only after every notification received before it, and
// only while the lease was renewed less than its expiry ago;
// outputs are written in the order their changes were applied; every write transaction is
// fenced by the lease (agent/Lease.h); a barrier's token is written only after the server
// has answered every transaction that carries the outputs of the changes notified before it,
// after the notification setting was checked unchanged and after every report of other
// clients' writes that preceded it was repaired.
// Threading: the scheduler's thread; stopFromSignal() from a signal handler. The connection
// side is in DecapAgent.cpp, the state side (start-up, catch-up, inputs, writes) in
// DecapAgentState.cpp.
class DecapAgent {
 public:
  DecapAgent(AgentCommandLine config, std::optional<Credentials> credentials, StderrLog log);
  ~DecapAgent();
  DecapAgent(DecapAgent const&) = delete;
  DecapAgent& operator=(DecapAgent const&) = delete;

  // Runs until a stop; then finishes the writes under way (for at most a few seconds), stops
  // the wrapper and closes the connections. Returns the process's exit code.
  int run();
  // Async-signal-safe.
  void stopFromSignal() noexcept;

 private:
  enum class State : std::uint8_t { connecting, standingBy, synchronising, running, blocked };
  // The first wait before reconnecting; it doubles up to a limit, and starts again here once
  // the agent is synchronised.
  static constexpr std::chrono::milliseconds kFirstBackoff{100};
  using Batch = NotificationBatch;
  // Connection lifecycle.
  void connect();
  void connectionUp();
  void connectionReady();
  void selectDatabase();
  // Goes back to connecting: `note` is said once per change of what is said.
  void startOver(std::string const& note);
  void connectionLost(std::string const& why);
  void retryLater();
  void configureNotifications(bool setOnce);
  void subscribe();
  void onPush(DbLink::RedisReply&& reply);
  void onForeignWrites(DbLink::RedisReply const& keys);

  // The lease and the heartbeat.
  void takeLease();
  void standBy(std::string const& holder);
  static std::string standingByNote(std::string const& holder);
  void leaseLost(std::string const& holder);
  // What a renewal of the lease held found: true while it holds. A lease that lapsed and that
  // another agent held and gave up again meanwhile (its pid in the status) is lost too.
  bool renewed(Lease::Outcome const& outcome, Orb::TaskSchedulerRoot::Clock::time_point sent);
  // Runs `then` while the lease is this agent's: at once when it was renewed less than its
  // expiry ago, else once renewed (a process stopped for longer may have lost it: then never).
  // Nothing is applied, recorded or started otherwise.
  void withLease(std::function<void()> then);
  // Renews the lease for `expiry`, then runs `then` while it holds (see renewed()); a server
  // that refuses the renewal is taken as a lost connection.
  void renewThen(std::chrono::milliseconds expiry, std::function<void()> then);
  void heartbeat();
  // Checks that no client changed the server's configuration since the notifications were
  // set up; `then` runs when none did (else the agent starts over).
  void checkConfiguration(std::function<void()> then);

  // Synchronisation.
  void synchronise();
  void onSnapshot(StateSnapshot&& found);
  void applySnapshot(StateSnapshot&& found);
  // A generous bound on what applying a snapshot costs per key read (its start-up walk or
  // catch-up, and the comparison), for the lease's extension before it.
  static constexpr std::chrono::microseconds kApplyPerKey{20};
  // Tells the service manager that the agent is ready once what is sent so far is written.
  void readyOnceWritten();
  void startWrapper(StateSnapshot& found);
  void block(std::string const& why);
  void stopWrapper();
  void catchUp(StateSnapshot& found);
  // The inputs found, as changes (their rows are released).
  std::vector<Host::InputChange> decodeInputs(StateSnapshot& found);
  // Writes what differs between memory and what was found; returns the number of keys.
  std::size_t writeDifferences(StateSnapshot& found);

  // Notifications.
  void scheduleBatch();
  void nextBatch();
  void onRead(std::size_t read, DbLink::RedisReply&& reply);
  // The batch's reads are in: the next batch's reads go out, then this one is applied.
  void batchRead();
  void applyBatch(Batch& batch);
  void applyKey(std::string const& key, DbLink::Fields const* fields, std::string const& error);
  void apply(std::string const& key, Host::InputChange const& change);
  // Notes what the database holds of a reset attribute, as read.
  void holdInput(Host::InputChange const& change);
  // Whether a notification of `key` is of one of the agent's own writes (then counted off).
  bool takeOwnWrite(std::string_view key, std::string_view event);
  void forgetOwnWrites();
  void libraryError(std::string const& key, std::string const& what);
  void barrierRequested(std::string token);
  // Notes the key that another client wrote, so that the next write puts memory's row back.
  void repair(std::string const& key);
  // The problem of an input key as decoded ("" when it is good or gone).
  void inputProblemIs(std::string const& key, std::string const& problem);
  static DbLink::Fields badInputRow(std::string const& problem);

  // Writes.
  void flush();
  void appendRepairs(DbLink::WriteBatch& batch);
  void appendBadInputs(DbLink::WriteBatch& batch);
  void appendDecapConfig(DbLink::WriteBatch& batch);
  void appendAgentStatus(DbLink::WriteBatch& batch);
  void appendLogs(DbLink::WriteBatch& batch);
  // Sends the batch, fenced by the lease; every batch's appendLogs() comes right before its
  // send(). Returns the transaction's number (0: nothing was sent).
  std::uint64_t send(DbLink::WriteBatch& batch);
  void written(std::uint64_t transaction);
  void writeRefused(std::string const& why);
  // The token is acknowledged once the transactions up to `transaction` are answered.
  void acknowledgeAfter(std::uint64_t transaction, std::string token);
  // The log entries of a transaction that ran are in the stream; forgotten, whichever
  // connection it was sent on.
  void logsWritten(std::uint64_t generation, std::uint64_t transaction);
  // After a lost connection: the log entries of unanswered transactions go out again.
  void resendLogs();
  // Closes the command connection and reconnects later; while transactions with log entries
  // wait for their answers on a connection still up, only once they are answered (or after
  // kAnswerWait), so that the entries of those that ran are not written twice.
  void closeThenRetry();
  void closedThenRetry();

  using Priority = LogPriority;
  void say(Priority priority, std::string const& line) const;
  // The library's structured log messages: to stderr, and queued for the log stream.
  void logMessage(Cog::LogMessage const& message, std::vector<std::string> const& args,
                  std::string const& formatted);

  AgentCommandLine const config_;
  std::optional<Credentials> const credentials_;
  StderrLog const log_;
  Loom::Ptr<Orb::TaskSchedulerRoot> const scheduler_;
  Lease const lease_;
  ServiceNotifier notifier_;
  State state_ = State::connecting;
  bool stopping_ = false;
  // What run() returns: 0, or the usage code once the server refused the database.
  int exitCode_ = 0;
  // The connections of the current attempt; replaced after a loss.
  std::unique_ptr<DbLink::RedisConnection> commands_;
  std::unique_ptr<DbLink::RedisConnection> notifications_;
  std::unique_ptr<SnapshotReader> snapshotReader_;
  Orb::TaskSchedulerRoot::Clock::time_point syncStarted_;
  Orb::TaskSchedulerRoot::TimerId retryTimer_ = 0;
  Orb::TaskSchedulerRoot::TimerId leaseTimer_ = 0;
  Orb::TaskSchedulerRoot::TimerId heartbeatTimer_ = 0;
  Orb::TaskSchedulerRoot::TimerId restartTimer_ = 0;
  // While a starting over waits for the answers of the connection it closes.
  Orb::TaskSchedulerRoot::TimerId answerWaitTimer_ = 0;
  // When the last take or renewal of the lease that the server confirmed was sent.
  Orb::TaskSchedulerRoot::Clock::time_point leaseRenewed_;
  std::chrono::milliseconds backoff_;
  // The last line said about the connection, so that each change of state is said once.
  std::string connectionNote_;
  // How many CONFIG SET the server had run when the notification setting was last found
  // right; none when the server does not say.
  std::optional<std::uint64_t> configSets_;

  // The agent, from the first synchronisation on; none while standing by or blocked, when
  // the stand-in answers the command socket.
  std::unique_ptr<Host::AgentHarness> harness_;
  std::unique_ptr<OutputTracker> tracker_;
  std::unique_ptr<Recorder> recorder_;
  std::unique_ptr<StandInSocket> standIn_;
  std::string blockedBy_;

  std::deque<Notification> pending_;
  // The batch whose keys are being re-read, if any.
  std::optional<Batch> batch_;
  Orb::TaskSchedulerRoot::TimerId batchTimer_ = 0;
  // Counts connection losses: a reply handler of an earlier connection does nothing.
  std::uint64_t generation_ = 0;
  std::size_t connectionsUp_ = 0;
  // The attributes that the wrapper resets at start-up, the only inputs the agent writes (each
  // to its own key): what the database holds of each (an absent key and bad input as false),
  // and the notifications of the agent's own writes of it that are still to come.
  struct ResetAttribute {
    Host::InputTable table;
    bool held = false;
    std::size_t ownWrites = 0;
  };
  std::array<ResetAttribute, 2> resetAttributes_{
      {{Host::InputTable::startupSyncDone}, {Host::InputTable::restartDone}}};
  // Keys of the agent's that other clients wrote, to be written again.
  std::vector<std::string> repairs_;
  // The input keys that hold bad input, with the problem; those whose problem changed since
  // the last write.
  std::map<std::string, std::string> badInputs_;
  std::set<std::string> badInputsChanged_;

  // The transactions sent and answered, numbered from 1 per connection.
  std::uint64_t transactionsSent_ = 0;
  std::uint64_t transactionsAnswered_ = 0;
  // Tokens waiting for the transactions before them to be answered, in order.
  std::deque<std::pair<std::uint64_t, std::string>> tokensToAcknowledge_;
  // Tokens of the current batch's barriers, acknowledged after its write.
  std::vector<std::string> batchTokens_;

  // The barrier and the agent status: the last token handled, the errors counted, the
  // writes refused; and what the database holds of the status.
  std::optional<std::string> syncToken_;
  std::uint64_t errors_ = 0;
  std::string lastError_;
  std::uint64_t refusedWrites_ = 0;
  std::string lastRefusal_;
  bool refusing_ = false;
  std::int64_t heartbeatMs_ = 0;
  std::optional<DbLink::Fields> heldAgentStatus_;
  // Structured log messages not yet written to the log stream.
  std::deque<std::pair<std::string, std::string>> logs_;
  std::uint64_t logsDropped_ = 0;
  // The log entries of each transaction sent and not yet answered, oldest first, with the
  // generation and number of their transaction.
  struct SentLogs {
    std::uint64_t generation = 0;
    std::uint64_t transaction = 0;
    std::vector<std::pair<std::string, std::string>> entries;
  };
  std::deque<SentLogs> logsSent_;
};

}  // namespace VplsAgent
