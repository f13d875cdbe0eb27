#include "agent/DecapAgent.h"

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

namespace VplsAgent {
namespace {

using DbLink::Fields;
using DbLink::RedisReply;

constexpr char kProgram[] = "vpls-decap-agent";
constexpr std::size_t kMaxBatch = 16384;
// Notifications waiting to be applied, at most (a few tens of MiB).
constexpr std::size_t kMaxPending = 262144;
constexpr std::size_t kMaxQueuedLogs = 100000;
constexpr std::chrono::milliseconds kMaxBackoff{5000};
constexpr std::chrono::seconds kStopGrace{5};
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

}  // namespace

DecapAgent::DecapAgent(AgentCommandLine config, std::optional<Credentials> credentials)
    : config_(std::move(config)),
      credentials_(std::move(credentials)),
      scheduler_(Orb::TaskSchedulerRoot::TaskSchedulerRootIs()),
      backoff_(kFirstBackoff) {
  Orb::TaskSchedulerRoot::rootIs(scheduler_.get());
  if (config_.record) {
    recorder_ = std::make_unique<Recorder>(*config_.record);
  }
}

void DecapAgent::logMessage(Cog::LogMessage const& message, std::vector<std::string> const& args,
                            std::string const& formatted) {
  std::cerr << message.identifier << ": " << formatted << "\n";
  if (logs_.size() >= kMaxQueuedLogs) {
    logs_.pop_front();
    ++logsDropped_;
  }
  logs_.emplace_back(
      std::string(message.identifier),
      nlohmann::json(args).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

DecapAgent::~DecapAgent() {
  tracker_.reset();
  harness_.reset();
  commands_.reset();
  notifications_.reset();
  Orb::TaskSchedulerRoot::rootIs(nullptr);
}

void DecapAgent::say(std::string const& line) const {
  std::cerr << kProgram << ": " << line << std::endl;
}

void DecapAgent::stopFromSignal() noexcept {
  scheduler_->stopFromSignal();
}

int DecapAgent::run() {
  say("starting; state database " + config_.redis.text() + ", database " +
      std::to_string(config_.db));
  connect();
  scheduler_->run();

  // Stop in order: finish the batch and the writes under way, then the wrapper (which closes
  // the command socket), then the connections.
  stopping_ = true;
  auto const deadline = Orb::TaskSchedulerRoot::Clock::now() + kStopGrace;
  while (state_ == State::running && commands_ && (batch_ || commands_->waitingReplies() > 0) &&
         Orb::TaskSchedulerRoot::Clock::now() < deadline) {
    scheduler_->runOnce(std::chrono::milliseconds(50));
  }
  tracker_.reset();
  harness_.reset();
  commands_.reset();
  notifications_.reset();
  say("stopped");
  return 0;
}

// ---- Connections ----

void DecapAgent::connect() {
  retryTimer_ = 0;
  commands_ = std::make_unique<DbLink::RedisConnection>(*scheduler_, config_.redis);
  notifications_ = std::make_unique<DbLink::RedisConnection>(*scheduler_, config_.redis);
  connectionsUp_ = 0;
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
  if (config_.db != 0) {
    for (auto* connection : {commands_.get(), notifications_.get()}) {
      connection->command({"SELECT", std::to_string(config_.db)}, [this](RedisReply&& reply) {
        if (reply.isError() && !reply.text.starts_with("connection lost")) {
          say("cannot select database " + std::to_string(config_.db) + ": " + reply.text);
        }
      });
    }
  }
  std::string const note = "connected to the state database at " + config_.redis.text();
  if (note != connectionNote_) {
    say(note);
    connectionNote_ = note;
  }
  state_ = State::synchronising;
  // Notifications on, then subscribed, then everything read: a write after the read is
  // notified.
  configureNotifications();
}

void DecapAgent::connectionLost(std::string const& why) {
  if (stopping_) {
    return;
  }
  bool const wasUp = state_ == State::running;
  ++generation_;
  state_ = State::connecting;
  pending_.clear();
  batch_.reset();
  snapshotReader_.reset();
  ownDecapConfigWrites_ = 0;
  resendLogs();
  commands_->close();
  notifications_->close();
  std::string const note =
      wasUp ? "lost the state database at " + config_.redis.text() + " (" + why +
                  "); answering the show command from memory, reconnecting"
            : "waiting for the state database at " + config_.redis.text() + " (" + why + ")";
  if (note != connectionNote_ &&
      !(connectionNote_.starts_with("waiting") && note.starts_with("waiting"))) {
    say(note);
  }
  connectionNote_ = note;
  retryLater();
}

void DecapAgent::retryLater() {
  if (retryTimer_ != 0) {
    return;
  }
  retryTimer_ = scheduler_->timerIs(backoff_, [this] { connect(); });
  backoff_ = std::min(backoff_ * 2, kMaxBackoff);
}

void DecapAgent::configureNotifications() {
  auto const gen = generation_;
  commands_->command({"CONFIG", "GET", "notify-keyspace-events"}, [this, gen](RedisReply&& reply) {
    if (gen != generation_) {
      return;
    }
    if (reply.isError() || reply.elements.size() != 2) {
      say("cannot read the server's keyspace notification setting (" + reply.text +
          "); changes are seen only if it includes " + std::string(kNeededEvents));
      subscribe();
      return;
    }
    std::string const current = reply.elements[1].text;
    std::string const wanted = withNeededEvents(current);
    if (wanted == current) {
      subscribe();
      return;
    }
    commands_->command({"CONFIG", "SET", "notify-keyspace-events", wanted},
                       [this, gen, current, wanted](RedisReply&& set) {
                         if (gen != generation_) {
                           return;
                         }
                         if (set.isError()) {
                           say("cannot switch on keyspace notifications (" + set.text + ")");
                         } else {
                           say("keyspace notifications were \"" + current + "\"; set to \"" +
                               wanted + "\" (the agent needs " + std::string(kNeededEvents) + ")");
                         }
                         subscribe();
                       });
  });
}

void DecapAgent::subscribe() {
  auto const gen = generation_;
  notifications_->pushHandlerIs([this, gen](RedisReply&& reply) {
    if (gen == generation_) {
      onPush(std::move(reply));
    }
  });
  // One pattern per command, so that each answer pairs with its command. The subscription is
  // complete when the last one is answered: every write after that is notified, so reading
  // everything next misses nothing.
  auto const patterns = DbLink::inputChannelPatterns(config_.db);
  auto const left = std::make_shared<std::size_t>(patterns.size());
  for (auto const& pattern : patterns) {
    notifications_->command({"PSUBSCRIBE", pattern}, [this, gen, left](RedisReply&& reply) {
      if (gen != generation_) {
        return;
      }
      if (reply.isError()) {
        connectionLost("cannot subscribe to keyspace notifications: " + reply.text);
      } else if (--*left == 0) {
        synchronise();
      }
    });
  }
}

void DecapAgent::onPush(RedisReply&& reply) {
  auto& e = reply.elements;
  if (e.size() != 4 || e[0].text != "pmessage") {
    return;
  }
  auto const key = DbLink::keyOfChannel(e[2].text);
  if (!key) {
    return;
  }
  if (*key == DbLink::kDecapConfig && e[3].text == "hset" && ownDecapConfigWrites_ > 0) {
    --ownDecapConfigWrites_;  // the agent's own write
    return;
  }
  if (pending_.size() >= kMaxPending) {
    // Memory stays bounded: what the notifications would say, reading everything says too.
    connectionLost(std::to_string(pending_.size()) +
                   " notifications wait, more than the agent keeps; reading everything again");
    return;
  }
  pending_.push_back(Notification{std::string(*key), std::move(e[3].text)});
  scheduleBatch();
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
    auto const& key = batch.notifications.emplace_back(std::move(pending_.front())).key;
    pending_.pop_front();
    auto const [it, fresh] = readOfKey.try_emplace(key, batch.reads.size());
    batch.readOf.push_back(it->second);
    if (!fresh) {
      continue;
    }
    batch.reads.emplace_back();
    ++batch.waiting;
    commands_->command({"HGETALL", key}, [this, gen, index = it->second](RedisReply&& reply) {
      if (gen == generation_ && batch_) {
        onRead(index, std::move(reply));
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
  if (--batch_->waiting > 0) {
    return;
  }
  // The next batch's reads go out before this one is applied, so that the server reads while
  // the agent applies, and writes while the agent applies the next batch.
  Batch done = std::move(*batch_);
  batch_.reset();
  nextBatch();
  applyBatch(done);
  flush();
}

void DecapAgent::applyBatch(Batch& batch) {
  for (std::size_t i = 0; i < batch.notifications.size(); ++i) {
    auto const& notification = batch.notifications[i];
    auto const& read = batch.reads[batch.readOf[i]];
    if (notification.key == DbLink::kAgentSync) {
      if (read.fields) {
        for (auto const& [field, value] : *read.fields) {
          if (field == DbLink::kTokenField) {
            syncToken_ = value;
          }
        }
      }
      continue;
    }
    applyKey(notification.key, read.fields ? &*read.fields : nullptr, read.error);
  }
}

}  // namespace VplsAgent
