#include "agent/DecapAgent.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <unordered_set>

#include "Cog/Toggle.h"
#include "Orb/AgentSocketHandlerSm.h"
#include "dblink/InputRows.h"
#include "dblink/OutputRows.h"
#include "sim/InputOps.h"

namespace VplsAgent {
namespace {

using DbLink::Fields;
using DbLink::RedisReply;

constexpr char kProgram[] = "vpls-decap-agent";
constexpr std::size_t kMaxBatch = 16384;
constexpr std::size_t kMaxQueuedLogs = 100000;
constexpr char kLogStreamLength[] = "100000";
constexpr std::chrono::milliseconds kFirstBackoff{100};
constexpr std::chrono::milliseconds kMaxBackoff{5000};
constexpr std::chrono::seconds kStopGrace{5};
// The keyspace notifications the agent needs: keyspace events (K) of every command that can
// write a key of any type, so that a write of the wrong type to an input key is seen too.
constexpr std::string_view kNeededEvents = "Kg$lshzxet";
constexpr std::string_view kAllEvents = "g$lshzxetd";  // what 'A' stands for

// Whether two hashes hold the same fields; the agent writes the fields of a table in one
// order, which the server keeps, so the comparison in order is the usual one.
bool sameFields(Fields const& a, Fields const& b) {
  if (a.size() != b.size()) {
    return false;
  }
  if (a == b) {
    return true;
  }
  Fields sortedA = a;
  Fields sortedB = b;
  std::sort(sortedA.begin(), sortedA.end());
  std::sort(sortedB.begin(), sortedB.end());
  return sortedA == sortedB;
}

// The toggles the library reads, for the recording: the toggle file as a map, none when there
// is no usable file (the library then uses its defaults).
std::optional<std::map<std::string, bool>> readToggles() {
  std::ifstream in(Cog::toggleDir() / "MarlTunnel.json");
  if (!in.is_open()) {
    return std::nullopt;
  }
  auto const json = nlohmann::json::parse(in, nullptr, false);
  if (!json.is_object()) {
    return std::nullopt;
  }
  std::map<std::string, bool> toggles;
  for (auto const& [name, state] : json.items()) {
    if (state.is_boolean()) {
      toggles[name] = state.get<bool>();
    }
  }
  return toggles;
}

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

bool isAttributeKey(std::string_view key) {
  return key == DbLink::kDecapConfig || key == DbLink::kVtepTypeStatus;
}

}  // namespace

DecapAgent::DecapAgent(AgentCommandLine config)
    : config_(std::move(config)),
      scheduler_(Orb::TaskSchedulerRoot::TaskSchedulerRootIs()),
      backoff_(kFirstBackoff) {
  Orb::TaskSchedulerRoot::rootIs(scheduler_.get());
  if (config_.socketDir) {
    Orb::AgentSocketHandlerSm::socketDirIs(*config_.socketDir);
  }
  if (config_.record) {
    recorder_ = std::make_unique<Recorder>(*config_.record);
  }
  previousSink_ =
      Cog::logSinkIs([this](Cog::LogMessage const& message, std::vector<std::string> const& args,
                            std::string const& formatted) {
        std::cerr << message.identifier << ": " << formatted << "\n";
        if (logs_.size() >= kMaxQueuedLogs) {
          logs_.pop_front();
          ++logsDropped_;
        }
        logs_.emplace_back(
            std::string(message.identifier),
            nlohmann::json(args).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
      });
}

DecapAgent::~DecapAgent() {
  tracker_.reset();
  harness_.reset();
  commands_.reset();
  notifications_.reset();
  Cog::logSinkIs(std::move(previousSink_));
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
  bool const wasUp = state_ != State::connecting;
  ++generation_;
  state_ = State::connecting;
  pending_.clear();
  batch_.reset();
  snapshotReader_.reset();
  ownDecapConfigWrites_ = 0;
  writesInFlight_ = 0;
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
  retryLater(why);
}

void DecapAgent::retryLater(std::string const&) {
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
  pending_.push_back(Notification{std::string(*key), std::move(e[3].text)});
  scheduleBatch();
}

// ---- Synchronisation ----

void DecapAgent::synchronise() {
  syncStarted_ = Orb::TaskSchedulerRoot::Clock::now();
  snapshotReader_ = std::make_unique<SnapshotReader>(
      *commands_, [this](StateSnapshot&& found) { onSnapshot(std::move(found)); });
}

void DecapAgent::onSnapshot(StateSnapshot&& found) {
  using Clock = Orb::TaskSchedulerRoot::Clock;
  auto const read = Clock::now();
  bool const first = !harness_;
  if (first) {
    startWrapper(found);
  } else {
    catchUp(found);
  }
  auto const applied = Clock::now();
  auto const inputKeys = found.inputs.size();
  auto const outputKeys = found.outputs.size() + found.pwStatuses.size();
  auto const written = writeDifferences(found);
  state_ = State::running;
  backoff_ = kFirstBackoff;
  auto const ms = [](Clock::duration d) {
    return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(d).count());
  };
  say(std::string(first ? "started" : "resynchronised") + " over " + std::to_string(inputKeys) +
      " input keys and " + std::to_string(outputKeys) + " output keys, writing " +
      std::to_string(written) + " that differ (read " + ms(read - syncStarted_) + " ms, " +
      (first ? "start-up " : "catch-up ") + ms(applied - read) + " ms, comparison " +
      ms(Clock::now() - applied) + " ms)");
  scheduleBatch();
}

std::vector<Sim::Op> DecapAgent::decodeInputs(StateSnapshot const& found) {
  std::vector<Sim::Op> ops;
  auto const take = [&](std::string const& key, DbLink::InputDecoding&& decoding) {
    if (!decoding.problem.empty()) {
      say("bad input: " + decoding.problem);
    }
    if (key == DbLink::kDecapConfig && decoding.ops.size() == 2) {
      heldStartupSyncDone_ = decoding.ops[0].flag;
      heldRestartDone_ = decoding.ops[1].flag;
    }
    for (auto& op : decoding.ops) {
      ops.push_back(std::move(op));
    }
  };
  heldStartupSyncDone_ = heldRestartDone_ = false;
  bool haveDecapConfig = false;
  bool haveVtep = false;
  for (auto const& [key, fields] : found.inputs) {
    haveDecapConfig = haveDecapConfig || key == DbLink::kDecapConfig;
    haveVtep = haveVtep || key == DbLink::kVtepTypeStatus;
    take(key, DbLink::decodeInput(key, &fields));
  }
  for (auto const& [key, error] : found.wrongTypeInputs) {
    take(key, DbLink::decodeWrongType(key, "value of another type"));
  }
  // An absent hash of attributes holds them at their defaults.
  if (!haveDecapConfig) {
    take(std::string(DbLink::kDecapConfig), DbLink::decodeInput(DbLink::kDecapConfig, nullptr));
  }
  if (!haveVtep) {
    take(std::string(DbLink::kVtepTypeStatus),
         DbLink::decodeInput(DbLink::kVtepTypeStatus, nullptr));
  }
  return ops;
}

void DecapAgent::startWrapper(StateSnapshot const& found) {
  Sim::AgentOptions options;
  options.meshGroups = config_.meshGroups;
  options.hwFecIdResponses = found.hwFecIdResponses ? 1 : 0;
  options.scheduler = scheduler_;
  harness_ = std::make_unique<Sim::AgentHarness>(options);

  Sim::Scenario scenario;
  scenario.cleanSlate = !found.hwFecIdResponses;
  scenario.meshGroups = config_.meshGroups;
  scenario.toggles = readToggles();
  // Before the wrapper starts nothing reacts: the inputs found are simply there, as a
  // scenario's `before` ops are. Attributes at their default need no op.
  for (auto const& op : decodeInputs(found)) {
    if (op.kind == Sim::OpKind::set && !(Sim::isAttribute(op.table) && !op.flag)) {
      Sim::applyInput(*harness_, op);
      if (recorder_) {
        scenario.before.push_back(op);
      }
    }
  }
  for (auto const& problem : DbLink::loadOutputRows(*harness_, found.outputs)) {
    say("output left out: " + problem);
  }
  if (found.agentStatus) {
    for (auto const& [field, value] : *found.agentStatus) {
      if (field == DbLink::kErrorsField) {
        errors_ = DbLink::readNumber(value, ~std::uint64_t{0}).value_or(0);
      } else if (field == DbLink::kLastErrorField) {
        lastError_ = value;
      }
    }
  }
  if (recorder_) {
    for (auto const& [key, fields] : found.outputs) {
      scenario.outputs.push_back(Sim::StateRow{key, fields});
    }
    std::sort(scenario.outputs.begin(), scenario.outputs.end(),
              [](auto const& a, auto const& b) { return a.key < b.key; });
    recorder_->start(scenario);
  }
  harness_->start();
  tracker_ = std::make_unique<OutputTracker>(*harness_);
}

void DecapAgent::catchUp(StateSnapshot const& found) {
  // Elements that went away first, then what is new or changed, table by table.
  std::unordered_set<std::string> present;
  std::vector<std::pair<std::string, Sim::Op>> sets;
  for (auto const& op : decodeInputs(found)) {
    auto key = DbLink::inputRow(op).first;
    if (!Sim::isAttribute(op.table) && op.kind == Sim::OpKind::set) {
      present.insert(key);
    }
    if (op.kind == Sim::OpKind::set && !Sim::inputHolds(*harness_, op)) {
      sets.emplace_back(std::move(key), op);
    }
  }
  for (auto op : Sim::inputElements(*harness_)) {
    auto const key = DbLink::inputRow(op).first;
    if (!present.contains(key)) {
      op.kind = Sim::OpKind::del;
      apply(key, op);
    }
  }
  for (auto const& [key, op] : sets) {
    apply(key, op);
  }
}

std::size_t DecapAgent::writeDifferences(StateSnapshot& found) {
  DbLink::WriteBatch batch;
  std::unordered_set<std::string> wrongType(found.wrongTypeOutputs.begin(),
                                            found.wrongTypeOutputs.end());
  // What memory has is taken out of what was found; what stays there is gone from memory.
  DbLink::forEachOutputRow(*harness_, [&](std::string&& key, Fields&& fields) {
    auto const held = found.outputs.find(key);
    bool const present = held != found.outputs.end();
    bool const otherType = wrongType.erase(key) > 0;
    if (!present || !sameFields(held->second, fields)) {
      batch.hset(key, fields, present || otherType);
    }
    if (present) {
      found.outputs.erase(held);
    }
  });
  for (auto const& [key, fields] : found.outputs) {
    batch.del(key);
  }
  for (auto const& key : wrongType) {
    batch.del(key);
  }
  tracker_->forgetNotes();
  tracker_->derivedRowsFound(found.pwStatuses, DbLink::smStatusRow(*harness_).fields);
  for (auto& row : tracker_->take()) {
    if (row.fields) {
      batch.hset(row.key, *row.fields);
    } else {
      batch.del(row.key);
    }
  }
  heldAgentStatus_ = found.agentStatus;
  if (found.syncToken) {
    syncToken_ = found.syncToken;  // start-up has handled every change before it
  }
  appendDecapConfig(batch);
  appendAgentStatus(batch);
  appendLogs(batch);
  auto const written = batch.keys();
  send(batch);
  return written;
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
    commands_->command({"HGETALL", key}, [this, gen, read = it->second](RedisReply&& reply) {
      if (gen == generation_ && batch_) {
        onRead(read, std::move(reply));
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

void DecapAgent::applyKey(std::string const& key, Fields const* fields, std::string const& error) {
  auto decoding = error.empty() ? DbLink::decodeInput(key, fields)
                                : DbLink::decodeWrongType(key, "value of another type");
  if (!decoding.problem.empty()) {
    say("bad input: " + decoding.problem);
  }
  if (!isAttributeKey(key)) {
    for (auto const& op : decoding.ops) {
      apply(key, op);
    }
    return;
  }
  if (key == DbLink::kDecapConfig) {
    heldStartupSyncDone_ = decoding.ops[0].flag;
    heldRestartDone_ = decoding.ops[1].flag;
  }
  // A write of the hash sets the attributes it changes; one that changes none re-sets every
  // attribute the hash holds.
  std::vector<Sim::Op> changed;
  for (auto const& op : decoding.ops) {
    if (!Sim::inputHolds(*harness_, op)) {
      changed.push_back(op);
    }
  }
  if (changed.empty() && fields != nullptr) {
    for (auto const& op : decoding.ops) {
      auto const field = DbLink::inputRow(op).second.front().first;
      bool const held = std::any_of(fields->begin(), fields->end(),
                                    [&](auto const& f) { return f.first == field; });
      if (held) {
        changed.push_back(op);
      }
    }
  }
  for (auto const& op : changed) {
    apply(key, op);
  }
}

void DecapAgent::apply(std::string const& key, Sim::Op const& op) {
  if (Sim::isAttribute(op.table)) {
    tracker_->allPseudowiresTouched();
  } else {
    tracker_->pseudowireTouched(op.pw);
  }
  if (recorder_) {
    recorder_->record(op);
  }
  try {
    Sim::applyInput(*harness_, op);
  } catch (std::exception const& e) {
    libraryError(key, e.what());
  } catch (...) {
    libraryError(key, "an exception that is not a std::exception");
  }
}

void DecapAgent::libraryError(std::string const& key, std::string const& what) {
  ++errors_;
  lastError_ = key + ": " + what;
  say("the library raised while applying " + key + ": " + what);
}

// ---- Writes ----

void DecapAgent::flush() {
  if (state_ != State::running) {
    return;
  }
  DbLink::WriteBatch batch;
  for (auto& row : tracker_->take()) {
    if (row.fields) {
      batch.hset(row.key, *row.fields);
    } else {
      batch.del(row.key);
    }
  }
  appendDecapConfig(batch);
  appendAgentStatus(batch);
  appendLogs(batch);
  send(batch);
}

void DecapAgent::appendDecapConfig(DbLink::WriteBatch& batch) {
  // Only the wrapper writes these inputs (its reset at start-up); other changes come from the
  // database and are held already.
  auto const& config = *harness_->hwVplsPwDecapConfig;
  if (config.startupSyncDone() == heldStartupSyncDone_ &&
      config.restartDone() == heldRestartDone_) {
    return;
  }
  heldStartupSyncDone_ = config.startupSyncDone();
  heldRestartDone_ = config.restartDone();
  batch.hset(std::string(DbLink::kDecapConfig),
             {{"startupSyncDone", DbLink::boolText(heldStartupSyncDone_)},
              {"restartDone", DbLink::boolText(heldRestartDone_)}});
  ++ownDecapConfigWrites_;
}

void DecapAgent::appendAgentStatus(DbLink::WriteBatch& batch) {
  Fields status;
  if (syncToken_) {
    status.emplace_back(DbLink::kSyncField, *syncToken_);
  }
  status.emplace_back(DbLink::kErrorsField, DbLink::numberText(errors_));
  status.emplace_back(DbLink::kLastErrorField, lastError_);
  if (heldAgentStatus_ && sameFields(*heldAgentStatus_, status)) {
    return;
  }
  heldAgentStatus_ = status;
  batch.hset(std::string(DbLink::kAgentStatus), status);
}

void DecapAgent::appendLogs(DbLink::WriteBatch& batch) {
  if (logsDropped_ > 0) {
    say(std::to_string(logsDropped_) + " log messages were not written to " +
        std::string(DbLink::kLogStream) + " (more queued than it could take)");
    logsDropped_ = 0;
  }
  for (auto& [id, args] : logs_) {
    batch.command({"XADD", std::string(DbLink::kLogStream), "MAXLEN", "~", kLogStreamLength, "*",
                   "id", std::move(id), "args", std::move(args)});
  }
  logs_.clear();
}

void DecapAgent::send(DbLink::WriteBatch& batch) {
  if (batch.empty()) {
    return;
  }
  ++writesInFlight_;
  auto const gen = generation_;
  batch.send(*commands_, [this, gen](std::size_t failed, std::string const& first) {
    if (gen != generation_) {
      return;
    }
    --writesInFlight_;
    if (failed > 0) {
      say("a write to the state database failed in " + std::to_string(failed) +
          " commands: " + first);
    }
  });
}

}  // namespace VplsAgent
