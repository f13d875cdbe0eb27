// The agent's state against the database: the start-up and catch-up over what was read, the
// inputs applied as the runner's ops, and the writes of what changed (see DecapAgent.h).

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <unordered_set>

#include "Cog/Toggle.h"
#include "agent/DecapAgent.h"
#include "dblink/InputRows.h"
#include "host/InputWriter.h"
#include "host/OutputRows.h"

namespace VplsAgent {
namespace {

using DbLink::Fields;

constexpr char kLogStreamLength[] = "100000";

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

bool isAttributeKey(std::string_view key) {
  return key == DbLink::kDecapConfig || key == DbLink::kVtepTypeStatus;
}

}  // namespace

// ---- Synchronisation ----

void DecapAgent::synchronise() {
  syncStarted_ = Orb::TaskSchedulerRoot::Clock::now();
  snapshotReader_ = std::make_unique<SnapshotReader>(
      *commands_, [this](StateSnapshot&& found) { onSnapshot(std::move(found)); },
      [this](std::string const& why) { connectionLost("cannot read the state: " + why); });
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

std::vector<Host::InputChange> DecapAgent::decodeInputs(StateSnapshot const& found) {
  std::vector<Host::InputChange> ops;
  auto const take = [&](std::string const& key, DbLink::InputDecoding&& decoding) {
    if (!decoding.problem.empty()) {
      say("bad input: " + decoding.problem);
    }
    if (key == DbLink::kDecapConfig && decoding.changes.size() == 2) {
      heldStartupSyncDone_ = decoding.changes[0].flag;
      heldRestartDone_ = decoding.changes[1].flag;
    }
    for (auto& op : decoding.changes) {
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
  Host::AgentSettings settings;
  settings.meshGroups = config_.meshGroups;
  settings.chipRows = config_.chipRows;
  settings.hwFecIdResponses = found.hwFecIdResponses ? 1 : 0;
  settings.scheduler = scheduler_;
  if (config_.socketDir) {
    settings.socketDir = *config_.socketDir;
  }
  settings.logSink = [this](Cog::LogMessage const& message, std::vector<std::string> const& args,
                            std::string const& formatted) { logMessage(message, args, formatted); };
  harness_ = std::make_unique<Host::AgentHarness>(std::move(settings));

  Host::StartState scenario;
  scenario.cleanSlate = !found.hwFecIdResponses;
  scenario.meshGroups = config_.meshGroups;
  scenario.chipRows = config_.chipRows;
  scenario.toggles = readToggles();
  // Before the wrapper starts nothing reacts: the inputs found are simply there, as a
  // scenario's `before` ops are. Attributes at their default need no op.
  for (auto const& op : decodeInputs(found)) {
    if (op.kind == Host::ChangeKind::set && !(Host::isAttribute(op.table) && !op.flag)) {
      Host::applyInput(*harness_, op);
      if (recorder_) {
        scenario.before.push_back(op);
      }
    }
  }
  for (auto const& problem : Host::loadOutputRows(*harness_, found.outputs)) {
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
      scenario.outputs.push_back(Host::StateRow{key, fields});
    }
    std::sort(scenario.outputs.begin(), scenario.outputs.end(),
              [](auto const& a, auto const& b) { return a.key < b.key; });
    recorder_->start(scenario);
  }
  harness_->start();
  harness_->batchDone();
  for (auto const& problem : harness_->takeChipProblems()) {
    say("chip entry left out: " + problem);
  }
  tracker_ = std::make_unique<OutputTracker>(*harness_);
}

void DecapAgent::catchUp(StateSnapshot const& found) {
  // What went away first, from the FEC ids back to the pseudowire infos; then what is new or
  // changed, from the infos on, in the order a configuration is written (an encap FEC id that
  // arrived before its pseudowire's instance would wait to be published again).
  std::unordered_set<std::string> present;
  std::vector<std::pair<std::string, Host::InputChange>> sets;
  for (auto const& op : decodeInputs(found)) {
    auto key = DbLink::inputRow(op).first;
    if (!Host::isAttribute(op.table) && op.kind == Host::ChangeKind::set) {
      present.insert(key);
    }
    if (op.kind == Host::ChangeKind::set && !Host::inputHolds(*harness_, op)) {
      sets.emplace_back(std::move(key), op);
    }
  }
  auto held = Host::inputElements(*harness_);
  std::reverse(held.begin(), held.end());
  for (auto& op : held) {
    auto const key = DbLink::inputRow(op).first;
    if (!present.contains(key)) {
      op.kind = Host::ChangeKind::del;
      apply(key, op);
    }
  }
  std::stable_sort(sets.begin(), sets.end(),
                   [](auto const& a, auto const& b) { return a.second.table < b.second.table; });
  for (auto const& [key, op] : sets) {
    apply(key, op);
  }
}

std::size_t DecapAgent::writeDifferences(StateSnapshot& found) {
  harness_->batchDone();
  if (recorder_) {
    recorder_->batchDone();
  }
  DbLink::WriteBatch batch;
  std::unordered_set<std::string> wrongType(found.wrongTypeOutputs.begin(),
                                            found.wrongTypeOutputs.end());
  // What memory has is taken out of what was found; what stays there is gone from memory.
  Host::forEachOutputRow(*harness_, [&](std::string&& key, Fields&& fields) {
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
  tracker_->derivedRowsFound(found.pwStatuses);
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

// ---- Inputs ----

void DecapAgent::applyKey(std::string const& key, Fields const* fields, std::string const& error) {
  auto decoding = error.empty() ? DbLink::decodeInput(key, fields)
                                : DbLink::decodeWrongType(key, "value of another type");
  // A key that names no element and is gone again leaves nothing to say.
  bool const goneGarbage = fields == nullptr && error.empty() && decoding.changes.empty();
  if (!decoding.problem.empty() && !goneGarbage) {
    say("bad input: " + decoding.problem);
  }
  if (!isAttributeKey(key)) {
    for (auto const& op : decoding.changes) {
      apply(key, op);
    }
    return;
  }
  if (key == DbLink::kDecapConfig) {
    heldStartupSyncDone_ = decoding.changes[0].flag;
    heldRestartDone_ = decoding.changes[1].flag;
  }
  // A write of the hash sets the attributes it changes; one that changes none re-sets every
  // attribute the hash holds. A hash that is bad input counts as absent: it re-sets nothing.
  std::vector<Host::InputChange> changed;
  for (auto const& op : decoding.changes) {
    if (!Host::inputHolds(*harness_, op)) {
      changed.push_back(op);
    }
  }
  if (changed.empty() && fields != nullptr && decoding.problem.empty()) {
    for (auto const& op : decoding.changes) {
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

void DecapAgent::apply(std::string const& key, Host::InputChange const& op) {
  if (Host::isAttribute(op.table)) {
    tracker_->allPseudowiresTouched();
  } else {
    tracker_->pseudowireTouched(op.pw);
  }
  if (recorder_) {
    recorder_->record(op);
  }
  try {
    Host::applyInput(*harness_, op);
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
  harness_->batchDone();
  if (recorder_) {
    recorder_->batchDone();
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
  for (auto const& [id, args] : logs_) {
    batch.command({"XADD", std::string(DbLink::kLogStream), "MAXLEN", "~", kLogStreamLength, "*",
                   "id", id, "args", args});
  }
  // Kept until the transaction is answered: a connection lost before then writes them again.
  logsSent_.emplace_back(std::make_move_iterator(logs_.begin()),
                         std::make_move_iterator(logs_.end()));
  logs_.clear();
}

void DecapAgent::send(DbLink::WriteBatch& batch) {
  if (batch.empty()) {
    logsSent_.pop_back();  // nothing of this batch was logs either
    return;
  }
  auto const gen = generation_;
  batch.send(*commands_, [this, gen](std::size_t failed, std::string const& first) {
    if (gen != generation_) {
      return;
    }
    logsSent_.pop_front();
    if (failed > 0) {
      say("a write to the state database failed in " + std::to_string(failed) +
          " commands: " + first);
    }
  });
}

void DecapAgent::resendLogs() {
  for (auto batch = logsSent_.rbegin(); batch != logsSent_.rend(); ++batch) {
    logs_.insert(logs_.begin(), std::make_move_iterator(batch->begin()),
                 std::make_move_iterator(batch->end()));
  }
  logsSent_.clear();
}

}  // namespace VplsAgent
