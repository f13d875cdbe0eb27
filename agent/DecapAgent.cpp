#include "agent/DecapAgent.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

namespace VplsAgent {
namespace {

using DbLink::Fields;
using DbLink::RedisReply;

// The exit code of a database the server does not have (the daemon's usage errors).
constexpr int kExitUsage = 2;
constexpr std::size_t kMaxBatch = 16384;
// Notifications waiting to be applied, at most (about 100 MiB): more than a writer's burst of a
// whole configuration at the chip's scale (65535 pseudowires of 8 VLANs are 720885 input keys).
constexpr std::size_t kMaxPending = 1048576;
constexpr std::size_t kMaxQueuedLogs = 100000;
constexpr std::chrono::milliseconds kMaxBackoff{5000};
constexpr std::chrono::seconds kStopGrace{5};
// How long a starting over waits for the answers to the transactions it sent.
constexpr std::chrono::milliseconds kAnswerWait{1000};
constexpr std::chrono::milliseconds kHeartbeat{1000};
constexpr std::chrono::milliseconds kStandByRetry{500};
// A blocked agent starts again this long after an input changes, so that a burst of writes
// costs one start.
constexpr std::chrono::milliseconds kRestartDelay{200};
// Where the server reports other clients' writes of the agent's keys (client tracking).
constexpr std::string_view kForeignWritesChannel = "__redis__:invalidate";
// The keyspace notifications the agent needs: keyspace events (K) of every command that can
// write a key of any type, so that a write of the wrong type to an input key is seen too.
constexpr std::string_view kNeededEvents = "Kg$lshzxet";
constexpr std::string_view kAllEvents = "g$lshzxetd";  // what 'A' stands for

// The notification flags with what the agent needs added ('A' counts as what it stands for).
std::string withNeededEvents(std::string const& current) {
  std::string have = current;
  if (have.find('A') != std::string::npos) {
    have += kAllEvents;
  }
  std::string result = current;
  for (char const flag : kNeededEvents) {
    if (have.find(flag) == std::string::npos) {
      result += flag;
      have += flag;
    }
  }
  return result;
}

// How many CONFIG SET the server has run, from INFO commandstats (a server that counts
// CONFIG's subcommands together counts them all; the agent sends none after the baseline).
std::uint64_t configSetCount(std::string_view info) {
  for (std::string_view const name : {"cmdstat_config|set:calls=", "cmdstat_config:calls="}) {
    if (auto const at = info.find(name); at != std::string_view::npos) {
      std::uint64_t count = 0;
      auto const digits = info.substr(at + name.size());
      std::from_chars(digits.data(), digits.data() + digits.size(), count);
      return count;
    }
  }
  return 0;
}

}  // namespace

DecapAgent::DecapAgent(AgentCommandLine config, std::optional<Credentials> credentials,
                       StderrLog log)
    : config_(std::move(config)),
      credentials_(std::move(credentials)),
      log_(std::move(log)),
      scheduler_(Orb::TaskSchedulerRoot::TaskSchedulerRootIs()),
      lease_(Lease::holderName(), std::to_string(::getpid())),
      notifier_(*scheduler_, log_),
      backoff_(kFirstBackoff) {
  Orb::TaskSchedulerRoot::rootIs(scheduler_.get());
}

void DecapAgent::logMessage(Cog::LogMessage const& message, std::vector<std::string> const& args,
                            std::string const& formatted) {
  std::string line(message.identifier);
  log_.write(priorityOfSeverity(message.severity), line.append(": ").append(formatted));
  if (logs_.size() >= kMaxQueuedLogs) {
    logs_.pop_front();
    ++logsDropped_;
  }
  logs_.emplace_back(
      std::string(message.identifier),
      nlohmann::json(args).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

DecapAgent::~DecapAgent() {
  standIn_.reset();
  tracker_.reset();
  harness_.reset();
  commands_.reset();
  notifications_.reset();
  Orb::TaskSchedulerRoot::rootIs(nullptr);
}

void DecapAgent::say(Priority priority, std::string const& line) const {
  log_.say(priority, line);
}

void DecapAgent::stopFromSignal() noexcept {
  scheduler_->stopFromSignal();
}

int DecapAgent::run() {
  say(Priority::info, "starting; state database " + config_.redis.text() + ", database " +
                          std::to_string(config_.db));
  connect();
  scheduler_->run();

  // Stop in order: finish the batch and the writes under way, then the wrapper (which closes
  // the command socket), then the connections.
  stopping_ = true;
  notifier_.stopping();
  auto const deadline = Orb::TaskSchedulerRoot::Clock::now() + kStopGrace;
  while (state_ == State::running && commands_ && (batch_ || commands_->waitingReplies() > 0) &&
         Orb::TaskSchedulerRoot::Clock::now() < deadline) {
    scheduler_->runOnce(std::chrono::milliseconds(50));
  }
  if (commands_ && commands_->state() == DbLink::RedisConnection::State::connected &&
      state_ != State::standingBy && state_ != State::connecting) {
    bool released = false;
    lease_.release(*commands_, [&released] { released = true; });
    while (!released && Orb::TaskSchedulerRoot::Clock::now() < deadline) {
      scheduler_->runOnce(std::chrono::milliseconds(50));
    }
  }
  standIn_.reset();
  tracker_.reset();
  harness_.reset();
  commands_.reset();
  notifications_.reset();
  if (exitCode_ == 0) {
    say(Priority::notice, "stopped");
  }
  return exitCode_;
}

// ---- Connections ----

void DecapAgent::connect() {
  retryTimer_ = 0;
  commands_ = std::make_unique<DbLink::RedisConnection>(*scheduler_, config_.redis);
  notifications_ = std::make_unique<DbLink::RedisConnection>(*scheduler_, config_.redis);
  connectionsUp_ = 0;
  transactionsSent_ = transactionsAnswered_ = 0;
  auto const gen = generation_;
  auto const up = [this, gen] {
    if (gen == generation_ && ++connectionsUp_ == 2) {
      connectionUp();
    }
  };
  auto const lost = [this, gen](std::string const& why) {
    if (gen == generation_) {
      connectionLost(why);
    }
  };
  commands_->connect(up, lost);
  notifications_->connect(up, lost);
}

void DecapAgent::connectionUp() {
  if (!credentials_) {
    connectionReady();
    return;
  }
  // Both connections authenticate first; the agent goes on once the command connection has.
  auto const gen = generation_;
  std::vector<std::string> auth{"AUTH"};
  if (credentials_->user) {
    auth.push_back(*credentials_->user);
  }
  auth.push_back(credentials_->password);
  notifications_->command(auth, [this, gen](RedisReply&& reply) {
    if (gen == generation_ && reply.isError()) {
      connectionLost("authentication failed: " + reply.text);
    }
  });
  commands_->command(auth, [this, gen](RedisReply&& reply) {
    if (gen != generation_) {
      return;
    }
    if (reply.isError()) {
      connectionLost("authentication failed: " + reply.text);
    } else {
      connectionReady();
    }
  });
}

void DecapAgent::connectionReady() {
  std::string const note = "connected to the state database at " + config_.redis.text();
  if (note != connectionNote_) {
    say(Priority::notice, note);
    connectionNote_ = note;
  }
  notifier_.status(note + ", synchronising");
  if (config_.db != 0) {
    selectDatabase();
    return;
  }
  // Notifications on, then subscribed, then the lease, then everything read: a write after
  // the read is notified.
  configureNotifications(true);
}

void DecapAgent::selectDatabase() {
  // Only the command connection selects: the notification connection subscribes to the
  // database's channels by name. Nothing else is sent before the answer, so that nothing runs
  // on another database; the number of databases comes first, for the line a refusal is.
  auto const gen = generation_;
  auto const databases = std::make_shared<std::string>();
  commands_->command({"CONFIG", "GET", "databases"}, [databases](RedisReply&& reply) {
    if (!reply.isError() && reply.elements.size() == 2) {
      *databases = reply.elements[1].text;
    }
  });
  commands_->command(
      {"SELECT", std::to_string(config_.db)}, [this, gen, databases](RedisReply&& reply) {
        if (gen != generation_) {
          return;
        }
        if (!reply.isError()) {
          configureNotifications(true);
          return;
        }
        if (commands_->state() != DbLink::RedisConnection::State::connected) {
          return;  // the connection was lost, not the database refused: the agent reconnects
        }
        std::string line = "--db " + std::to_string(config_.db) + ": the state database at " +
                           config_.redis.text() + " refused it (" + reply.text + ")";
        if (auto const count = DbLink::readNumber(*databases, 65536); count && *count > 0) {
          line.append("; the server has ").append(*databases).append(" databases, 0 to ");
          line.append(std::to_string(*count - 1));
        }
        say(Priority::error, line);
        exitCode_ = kExitUsage;
        scheduler_->stop();
      });
}

void DecapAgent::startOver(std::string const& note) {
  if (stopping_) {
    return;
  }
  ++generation_;
  if (state_ != State::blocked) {
    state_ = State::connecting;  // blocked stays so, for the status, until a start succeeds
  }
  pending_.clear();
  batch_.reset();
  snapshotReader_.reset();
  forgetOwnWrites();
  repairs_.clear();
  batchTokens_.clear();
  tokensToAcknowledge_.clear();
  for (auto* timer :
       {&leaseTimer_, &heartbeatTimer_, &restartTimer_, &batchTimer_, &answerWaitTimer_}) {
    if (*timer != 0) {
      scheduler_->timerDel(*timer);
      *timer = 0;
    }
  }
  notifications_->close();
  if (note != connectionNote_ &&
      !(connectionNote_.starts_with("waiting") && note.starts_with("waiting"))) {
    say(Priority::warning, note);
  }
  connectionNote_ = note;
  notifier_.status(note);
  closeThenRetry();
}

void DecapAgent::closeThenRetry() {
  if (commands_->state() != DbLink::RedisConnection::State::connected || logsSent_.empty()) {
    closedThenRetry();
    return;
  }
  // The server answers a connection's commands in order: once this PING is answered, so is
  // every transaction sent before it, and logsWritten() has taken out those that ran.
  auto const gen = generation_;
  commands_->command({"PING"}, [this, gen](RedisReply&&) {
    if (gen == generation_ && answerWaitTimer_ != 0) {
      scheduler_->timerDel(answerWaitTimer_);
      answerWaitTimer_ = 0;
      closedThenRetry();
    }
  });
  answerWaitTimer_ = scheduler_->timerIs(kAnswerWait, [this] {
    answerWaitTimer_ = 0;
    closedThenRetry();
  });
}

void DecapAgent::closedThenRetry() {
  commands_->close();
  resendLogs();
  retryLater();
}

void DecapAgent::connectionLost(std::string const& why) {
  bool const wasUp = state_ == State::running;
  startOver(wasUp ? "lost the state database at " + config_.redis.text() + " (" + why +
                        "); answering the show command from memory, reconnecting"
                  : "waiting for the state database at " + config_.redis.text() + " (" + why + ")");
}

void DecapAgent::retryLater() {
  if (retryTimer_ != 0) {
    return;
  }
  retryTimer_ = scheduler_->timerIs(backoff_, [this] { connect(); });
  backoff_ = std::min(backoff_ * 2, kMaxBackoff);
}

void DecapAgent::configureNotifications(bool setOnce) {
  // The count of CONFIG SET first, then the setting: when a later count is the same, the
  // setting has not changed since it was read.
  auto const gen = generation_;
  auto const count = std::make_shared<std::optional<std::uint64_t>>();
  commands_->command({"INFO", "commandstats"}, [this, gen, count](RedisReply&& reply) {
    if (gen == generation_ && !reply.isError()) {
      *count = configSetCount(reply.text);
    }
  });
  commands_->command(
      {"CONFIG", "GET", "notify-keyspace-events"}, [this, gen, count, setOnce](RedisReply&& reply) {
        if (gen != generation_) {
          return;
        }
        if (reply.isError() || reply.elements.size() != 2) {
          say(Priority::warning, "cannot read the server's keyspace notification setting (" +
                                     reply.text + "); changes are seen only if it includes " +
                                     std::string(kNeededEvents) +
                                     ", and a change of it by another client is not seen");
          configSets_.reset();
          subscribe();
          return;
        }
        std::string const current = reply.elements[1].text;
        std::string const wanted = withNeededEvents(current);
        if (wanted == current || !setOnce) {
          configSets_ = *count;
          subscribe();
          return;
        }
        commands_->command(
            {"CONFIG", "SET", "notify-keyspace-events", wanted},
            [this, gen, current, wanted](RedisReply&& set) {
              if (gen != generation_) {
                return;
              }
              if (set.isError()) {
                say(Priority::error, "cannot switch on keyspace notifications (" + set.text + ")");
              } else {
                say(Priority::notice, "keyspace notifications were \"" + current + "\"; set to \"" +
                                          wanted + "\" (the agent needs " +
                                          std::string(kNeededEvents) + ")");
              }
              configureNotifications(false);
            });
      });
}

void DecapAgent::checkConfiguration(std::function<void()> then) {
  auto const gen = generation_;
  commands_->command(
      {"INFO", "commandstats"}, [this, gen, then = std::move(then)](RedisReply&& reply) {
        if (gen != generation_) {
          return;
        }
        if (configSets_ && !reply.isError() && configSetCount(reply.text) != *configSets_) {
          startOver(
              "another client changed the server's configuration (CONFIG SET): keyspace "
              "notifications may have been off meanwhile; reading everything again");
          return;
        }
        then();
      });
}

void DecapAgent::subscribe() {
  auto const gen = generation_;
  notifications_->pushHandlerIs([this, gen](RedisReply&& reply) {
    if (gen == generation_) {
      onPush(std::move(reply));
    }
  });
  // One channel or pattern per command, so that each answer pairs with its command. The
  // subscription is complete when the last one is answered and the server reports other
  // clients' writes to the agent's keys: every write after that is notified, so taking the
  // lease and reading everything next misses nothing.
  auto const patterns = DbLink::inputChannelPatterns(config_.db);
  auto const left = std::make_shared<std::size_t>(patterns.size() + 2);
  auto const answered = [this, gen, left](RedisReply&& reply) {
    if (gen != generation_) {
      return;
    }
    if (reply.isError()) {
      connectionLost("cannot subscribe to keyspace notifications: " + reply.text);
    } else if (--*left == 0) {
      takeLease();
    }
  };
  notifications_->command({"CLIENT", "ID"}, [this, gen, answered](RedisReply&& reply) {
    if (gen != generation_) {
      return;
    }
    // Other clients' writes of the agent's keys are reported on the notification connection,
    // never the agent's own (NOLOOP): the agent writes them again.
    std::vector<std::string> tracking{
        "CLIENT", "TRACKING", "ON", "REDIRECT", std::to_string(reply.integer), "BCAST"};
    for (auto const& prefix : DbLink::ownKeyPrefixes()) {
      tracking.emplace_back("PREFIX");
      tracking.push_back(prefix);
    }
    tracking.emplace_back("NOLOOP");
    commands_->command(tracking, [this, gen, answered](RedisReply&& on) {
      if (gen == generation_ && on.isError()) {
        say(Priority::warning,
            "cannot follow other clients' writes of the agent's keys (" + on.text +
                "); a key another client changes stays so until the agent starts again");
        on = RedisReply{};
      }
      answered(std::move(on));
    });
  });
  notifications_->command({"SUBSCRIBE", std::string(kForeignWritesChannel)}, answered);
  for (auto const& pattern : patterns) {
    notifications_->command({"PSUBSCRIBE", pattern}, answered);
  }
}

void DecapAgent::onPush(RedisReply&& reply) {
  auto& e = reply.elements;
  if (e.size() == 3 && e[0].text == "message" && e[1].text == kForeignWritesChannel) {
    onForeignWrites(e[2]);
    return;
  }
  if (e.size() != 4 || e[0].text != "pmessage") {
    return;
  }
  auto const key = DbLink::keyOfChannel(e[2].text);
  if (!key) {
    return;
  }
  if (state_ == State::blocked) {
    // Any change of the inputs may let the start-up through.
    if (*key != DbLink::kAgentSync && restartTimer_ == 0) {
      restartTimer_ = scheduler_->timerIs(kRestartDelay, [this] {
        restartTimer_ = 0;
        withLease([this] {
          if (state_ == State::blocked) {
            say(Priority::notice, "an input changed; starting again");
            state_ = State::synchronising;
            synchronise();
          }
        });
      });
    }
    return;
  }
  if (state_ == State::standingBy) {
    return;  // taking over reads everything
  }
  if (takeOwnWrite(*key, e[3].text)) {
    return;
  }
  if (pending_.size() >= kMaxPending) {
    // Memory stays bounded: what the notifications would say, reading everything says too.
    connectionLost(std::to_string(pending_.size()) +
                   " notifications wait, more than the agent keeps; reading everything again");
    return;
  }
  pending_.push_back(
      Notification{Notification::Kind::input, std::string(*key), std::move(e[3].text)});
  scheduleBatch();
}

void DecapAgent::readyOnceWritten() {
  if (!notifier_.managed()) {
    return;
  }
  // The server answers in order: this answer comes after that of every write sent before.
  auto const gen = generation_;
  commands_->command({"PING"}, [this, gen](RedisReply&& reply) {
    if (gen == generation_ && !reply.isError()) {
      notifier_.ready("running on the state database at " + config_.redis.text() + ", database " +
                      std::to_string(config_.db));
    }
  });
}

void DecapAgent::onForeignWrites(RedisReply const& keys) {
  if (keys.isNil()) {
    startOver(
        "another client emptied the database (FLUSHDB or FLUSHALL); reading everything "
        "again");
    return;
  }
  if (state_ != State::running && state_ != State::synchronising) {
    return;  // nothing of the agent's to put back yet; a start reads everything
  }
  for (auto const& key : keys.elements) {
    pending_.push_back(Notification{Notification::Kind::foreignWrite, key.text, {}});
  }
  scheduleBatch();
}

// ---- The lease and the heartbeat ----

void DecapAgent::takeLease() {
  leaseTimer_ = 0;
  auto const gen = generation_;
  auto const sent = Orb::TaskSchedulerRoot::Clock::now();
  lease_.takeOrRenew(*commands_, [this, gen, sent](Lease::Outcome outcome) {
    if (gen != generation_) {
      return;
    }
    switch (outcome.kind) {
      case Lease::Outcome::Kind::held:
        leaseRenewed_ = sent;
        if (state_ == State::standingBy) {
          say(Priority::notice, "took over the lease " + std::string(DbLink::kAgentLease));
        }
        state_ = State::synchronising;
        heartbeat();
        synchronise();
        return;
      case Lease::Outcome::Kind::heldByOther:
        standBy(outcome.text);
        return;
      case Lease::Outcome::Kind::unknown:
        connectionLost("cannot take the lease " + std::string(DbLink::kAgentLease) + ": " +
                       outcome.text);
        return;
    }
  });
}

std::string DecapAgent::standingByNote(std::string const& holder) {
  return "standing by: the lease " + std::string(DbLink::kAgentLease) + " is held by " + holder +
         "; taking over when it lapses";
}

void DecapAgent::standBy(std::string const& holder) {
  auto const reason = standingByNote(holder);
  if (connectionNote_ != reason) {
    say(Priority::notice, reason);
    connectionNote_ = reason;
    notifier_.ready(reason);  // a standby is a settled state of the service too
  }
  state_ = State::standingBy;
  pending_.clear();
  stopWrapper();
  if (!standIn_) {
    standIn_ = std::make_unique<StandInSocket>(config_.socketDir, reason);
  } else {
    standIn_->reasonIs(reason);
  }
  leaseTimer_ = scheduler_->timerIs(kStandByRetry, [this] { takeLease(); });
}

void DecapAgent::leaseLost(std::string const& holder) {
  say(Priority::warning, "lost the lease " + std::string(DbLink::kAgentLease) + " to " + holder +
                             "; writing nothing more");
  stopWrapper();
  logs_.clear();  // the new holder's outputs are not this agent's to log about
  logsSent_.clear();
  startOver(standingByNote(holder));
}

bool DecapAgent::renewed(Lease::Outcome const& outcome,
                         Orb::TaskSchedulerRoot::Clock::time_point sent) {
  switch (outcome.kind) {
    case Lease::Outcome::Kind::held:
      if (outcome.taken && !outcome.text.empty()) {
        leaseLost("another agent (" + outcome.text + "), which gave it up again");
        return false;
      }
      leaseRenewed_ = sent;
      return true;
    case Lease::Outcome::Kind::heldByOther:
      leaseLost(outcome.text);
      return false;
    case Lease::Outcome::Kind::unknown:
      return false;
  }
  return false;
}

void DecapAgent::withLease(std::function<void()> then) {
  if (Orb::TaskSchedulerRoot::Clock::now() - leaseRenewed_ < Lease::kExpiry) {
    then();
    return;
  }
  renewThen(Lease::kExpiry, std::move(then));
}

void DecapAgent::renewThen(std::chrono::milliseconds expiry, std::function<void()> then) {
  auto const gen = generation_;
  auto const sent = Orb::TaskSchedulerRoot::Clock::now();
  lease_.takeOrRenew(
      *commands_,
      [this, gen, sent, then = std::move(then)](Lease::Outcome outcome) {
        if (gen != generation_) {
          return;
        }
        if (renewed(outcome, sent)) {
          then();
        } else if (outcome.kind == Lease::Outcome::Kind::unknown) {
          connectionLost("cannot renew the lease " + std::string(DbLink::kAgentLease) + ": " +
                         outcome.text);
        }
      },
      expiry);
}

void DecapAgent::heartbeat() {
  heartbeatTimer_ = scheduler_->timerIs(kHeartbeat, [this] { heartbeat(); });
  auto const gen = generation_;
  auto const sent = Orb::TaskSchedulerRoot::Clock::now();
  lease_.takeOrRenew(*commands_, [this, gen, sent](Lease::Outcome outcome) {
    if (gen == generation_) {
      renewed(outcome, sent);
    }
  });
  checkConfiguration([this] {
    heartbeatMs_ = std::chrono::duration_cast<std::chrono::milliseconds>(
                       std::chrono::system_clock::now().time_since_epoch())
                       .count();
    if (state_ == State::running || state_ == State::blocked) {
      flush();
    }
  });
}

// ---- Notifications ----

void DecapAgent::scheduleBatch() {
  if (batchTimer_ != 0 || batch_ || state_ != State::running) {
    return;
  }
  // The next round, so that every notification of the current read joins the batch.
  batchTimer_ = scheduler_->timerIs(std::chrono::milliseconds(0), [this] {
    batchTimer_ = 0;
    nextBatch();
  });
}

void DecapAgent::nextBatch() {
  if (state_ != State::running || batch_ || pending_.empty() || stopping_) {
    return;
  }
  auto& batch = batch_.emplace();
  auto const gen = generation_;
  std::unordered_map<std::string_view, std::size_t> readOfKey;
  batch.notifications.reserve(std::min(pending_.size(), kMaxBatch));  // the keys stay in place
  while (!pending_.empty() && batch.notifications.size() < kMaxBatch) {
    auto const& note = batch.notifications.emplace_back(std::move(pending_.front()));
    pending_.pop_front();
    if (note.kind != Notification::Kind::input) {
      batch.readOf.push_back(Batch::kNoRead);
      continue;
    }
    auto const [it, fresh] = readOfKey.try_emplace(note.key, batch.reads.size());
    batch.readOf.push_back(it->second);
    if (!fresh) {
      continue;
    }
    batch.reads.emplace_back();
    ++batch.waiting;
    commands_->command({"HGETALL", note.key}, [this, gen, index = it->second](RedisReply&& reply) {
      if (gen == generation_ && batch_) {
        onRead(index, std::move(reply));
      }
    });
  }
  if (batch.waiting == 0) {
    // Nothing to read: applied in a later round, as a read would be.
    scheduler_->timerIs(std::chrono::milliseconds(0), [this, gen] {
      if (gen == generation_ && batch_ && batch_->waiting == 0) {
        batchRead();
      }
    });
  }
}

void DecapAgent::onRead(std::size_t index, RedisReply&& reply) {
  auto& read = batch_->reads[index];
  if (reply.isError()) {
    read.error = reply.text;
  } else if (!reply.elements.empty()) {
    read.fields = fieldsOf(std::move(reply));
  }
  if (--batch_->waiting == 0) {
    batchRead();
  }
}

void DecapAgent::batchRead() {
  // The batch stays under way until the lease is known, so that no later one overtakes it.
  withLease([this] {
    // The next batch's reads go out before this one is applied, so that the server reads while
    // the agent applies, and writes while the agent applies the next batch.
    Batch done = std::move(*batch_);
    batch_.reset();
    nextBatch();
    applyBatch(done);
    flush();
  });
}

void DecapAgent::applyBatch(Batch& batch) {
  for (std::size_t i = 0; i < batch.notifications.size(); ++i) {
    auto& notification = batch.notifications[i];
    switch (notification.kind) {
      case Notification::Kind::foreignWrite:
        repair(notification.key);
        continue;
      case Notification::Kind::barrier:
        batchTokens_.push_back(std::move(notification.key));
        continue;
      case Notification::Kind::input:
        break;
    }
    auto const& read = batch.reads[batch.readOf[i]];
    if (notification.key == DbLink::kAgentSync) {
      if (read.fields) {
        for (auto const& [field, value] : *read.fields) {
          if (field == DbLink::kTokenField) {
            barrierRequested(value);
          }
        }
      }
      continue;
    }
    applyKey(notification.key, read.fields ? &*read.fields : nullptr, read.error);
  }
}

void DecapAgent::barrierRequested(std::string token) {
  // The server's configuration unchanged since the notifications were set up (so none was
  // missed), then a round trip on the notification connection: every report of another
  // client's write that the server sent before it is then queued before the barrier.
  auto const gen = generation_;
  checkConfiguration([this, gen, token = std::move(token)]() mutable {
    notifications_->command({"PING"}, [this, gen, token = std::move(token)](RedisReply&&) mutable {
      if (gen != generation_) {
        return;
      }
      pending_.push_back(Notification{Notification::Kind::barrier, std::move(token), {}});
      scheduleBatch();
    });
  });
}

}  // namespace VplsAgent
