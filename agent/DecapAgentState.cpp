// The agent's state against the database: the start-up and catch-up over what was read, the
// inputs applied as the runner's ops, and the writes of what changed (see DecapAgent.h).

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <unordered_set>

#include <unistd.h>

#include "Cog/Toggle.h"
#include "VplsDecapVersion.h"
#include "agent/DecapAgent.h"
#include "dblink/InputRows.h"
#include "host/InputTables.h"
#include "host/InputWriter.h"
#include "host/OutputRows.h"
#include "host/OutputTable.h"

namespace VplsAgent {
namespace {

using DbLink::Fields;

constexpr char kLogStreamLength[] = "100000";

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

}  // namespace

// ---- Synchronisation ----

void DecapAgent::synchronise() {
  syncStarted_ = Orb::TaskSchedulerRoot::Clock::now();
  snapshotReader_ = std::make_unique<SnapshotReader>(
      *commands_, [this](StateSnapshot&& found) { onSnapshot(std::move(found)); },
      [this](std::string const& why) { connectionLost("cannot read the state: " + why); });
}

void DecapAgent::onSnapshot(StateSnapshot&& found) {
  // Applying what was read keeps the scheduler busy, the heartbeat included, for about this
  // long at chip scale: the lease is extended to outlast it first.
  auto const busy = kApplyPerKey * (found.inputs.size() + found.outputs.size());
  if (busy < Lease::kExpiry / 2) {
    applySnapshot(std::move(found));
    return;
  }
  auto snapshot = std::make_shared<StateSnapshot>(std::move(found));
  renewThen(Lease::kExpiry + std::chrono::duration_cast<std::chrono::milliseconds>(busy),
            [this, snapshot] { applySnapshot(std::move(*snapshot)); });
}

void DecapAgent::applySnapshot(StateSnapshot&& found) {
  using Clock = Orb::TaskSchedulerRoot::Clock;
  auto const read = Clock::now();
  bool const first = !harness_;
  auto const logsBefore = logs_.size();
  auto const inputKeys = found.inputs.size();
  try {
    if (first) {
      startWrapper(found);
    } else {
      catchUp(found);
    }
  } catch (std::exception const& e) {
    // What the failed start logged goes with it: a blocked agent writes no output.
    logs_.resize(std::min(logs_.size(), logsBefore));
    block(e.what());
    return;
  }
  auto const applied = Clock::now();
  auto const outputKeys = found.outputs.size() + found.pwStatuses.size();
  state_ = State::running;
  auto const written = writeDifferences(found);
  auto const ms = [](Clock::duration d) {
    return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(d).count());
  };
  if (!refusing_) {  // while the server refuses writes, the refusal was said once
    say(Priority::notice,
        std::string(first ? "started" : "resynchronised") + " over " + std::to_string(inputKeys) +
            " input keys and " + std::to_string(outputKeys) + " output keys, writing " +
            std::to_string(written) + " that differ (read " + ms(read - syncStarted_) + " ms, " +
            (first ? "start-up " : "catch-up ") + ms(applied - read) + " ms, comparison " +
            ms(Clock::now() - applied) + " ms)");
  }
  readyOnceWritten();
  scheduleBatch();
}

void DecapAgent::block(std::string const& why) {
  // The library stopped the start-up: what it built is dropped, nothing is written but the
  // status, and the next change of an input starts again.
  stopWrapper();
  pending_.clear();  // the next start reads everything
  ++errors_;
  lastError_ = "start-up: " + why;
  state_ = State::blocked;
  std::string const reason = "the agent is blocked: the library raised while starting (" + why +
                             "); it starts again when an input changes";
  if (blockedBy_ != why) {
    say(Priority::error, reason);
    blockedBy_ = why;
  }
  notifier_.ready(reason);
  if (!standIn_) {
    standIn_ = std::make_unique<StandInSocket>(config_.socketDir, reason);
  } else {
    standIn_->reasonIs(reason);
  }
  flush();
}

void DecapAgent::stopWrapper() {
  tracker_.reset();
  harness_.reset();
  recorder_.reset();
}

std::vector<Host::InputChange> DecapAgent::decodeInputs(StateSnapshot& found) {
  std::vector<Host::InputChange> ops;
  std::unordered_set<Host::InputTable> attributesFound;
  auto const take = [&](std::string const& key, DbLink::InputDecoding&& decoding) {
    if (!decoding.problem.empty()) {
      say(Priority::warning, "bad input: " + decoding.problem);
      badInputs_[key] = decoding.problem;
    }
    for (auto& op : decoding.changes) {
      holdInput(op);
      if (Host::isAttribute(op.table)) {
        attributesFound.insert(op.table);
      }
      ops.push_back(std::move(op));
    }
  };
  badInputs_.clear();  // what is found now; the comparison with the keys found writes it
  badInputsChanged_.clear();
  found.inputs.forEachInKeyOrder([&take](std::string_view key, Fields const& fields) {
    take(std::string(key), DbLink::decodeInput(key, &fields));
  });
  found.inputs = FoundRows();  // decoded: its memory goes before the outputs are loaded
  for (auto const& [key, error] : found.wrongTypeInputs) {
    take(key, DbLink::decodeWrongType(key, "value of another type"));
  }
  // An absent attribute key holds its attribute at false.
  for (auto const& table : Host::inputTables()) {
    if (table.keyColumns.empty() && !attributesFound.contains(table.table)) {
      take(std::string(table.redisName), DbLink::decodeInput(table.redisName, nullptr));
    }
  }
  return ops;
}

void DecapAgent::startWrapper(StateSnapshot& found) {
  standIn_.reset();
  if (config_.record) {
    // Each start of the wrapper records from its own start state.
    try {
      recorder_ = std::make_unique<Recorder>(*config_.record, log_);
    } catch (std::system_error const& e) {
      say(Priority::warning, std::string(e.what()) + "; going on without a recording");
    }
  }
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
  auto const outputsFound = [&found](Host::RowVisit const& visit, Host::TableWanted const& wanted) {
    found.outputs.forEachInKeyOrder(visit, wanted);
  };
  for (auto const& problem : Host::loadOutputRows(*harness_, outputsFound)) {
    say(Priority::warning, "output left out: " + problem);
  }
  if (found.agentStatus) {
    for (auto const& [field, value] : *found.agentStatus) {
      if (field == DbLink::kErrorsField) {
        errors_ = DbLink::readNumber(value, ~std::uint64_t{0}).value_or(0);
      } else if (field == DbLink::kLastErrorField) {
        lastError_ = value;
      } else if (field == DbLink::kSyncField) {
        syncToken_ = value;
      } else if (field == DbLink::kRefusedWritesField) {
        refusedWrites_ = DbLink::readNumber(value, ~std::uint64_t{0}).value_or(0);
      } else if (field == DbLink::kLastRefusalField) {
        lastRefusal_ = value;
      }
    }
  }
  if (recorder_) {
    found.outputs.forEachInKeyOrder([&scenario](std::string_view key, Fields const& fields) {
      scenario.outputs.push_back(Host::StateRow{std::string(key), fields});
    });
    recorder_->start(scenario);
  }
  harness_->start();
  harness_->batchDone();
  for (auto const& problem : harness_->takeChipProblems()) {
    say(Priority::warning, "chip entry left out: " + problem);
  }
  tracker_ = std::make_unique<OutputTracker>(*harness_);
  blockedBy_.clear();
}

void DecapAgent::catchUp(StateSnapshot& found) {
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
  tracker_->forgetHeld(found.outputs.size());
  Host::forEachOutputRow(*harness_, [&](std::string&& key, Fields&& fields) {
    tracker_->held(key, &fields);
    auto const held = found.outputs.take(key, fields);
    bool const otherType = !wrongType.empty() && wrongType.erase(key) > 0;
    if (held != FoundRows::Found::same) {
      batch.hset(key, fields, held == FoundRows::Found::different || otherType);
    }
  });
  found.outputs.forEachLeft([&batch](std::string_view key) { batch.del(std::string(key)); });
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
  for (auto const& [key, fields] : found.badInputs) {
    if (!badInputs_.contains(key.substr(DbLink::kBadInput.size() + 1))) {
      batch.del(key);
    }
  }
  for (auto const& [input, problem] : badInputs_) {
    auto const key = DbLink::joinKey({DbLink::kBadInput, input});
    auto const held = found.badInputs.find(key);
    if (held == found.badInputs.end() || !DbLink::sameFields(held->second, badInputRow(problem))) {
      batch.hset(key, badInputRow(problem), held != found.badInputs.end());
    }
  }
  heldAgentStatus_ = found.agentStatus;
  appendDecapConfig(batch);
  appendAgentStatus(batch);
  appendLogs(batch);
  auto const written = batch.keys();
  auto const transaction = send(batch);
  if (found.syncToken) {
    // The start-up has handled every change before the token.
    acknowledgeAfter(transaction, *found.syncToken);
  }
  return written;
}

// ---- Inputs ----

void DecapAgent::applyKey(std::string const& key, Fields const* fields, std::string const& error) {
  auto decoding = error.empty() ? DbLink::decodeInput(key, fields)
                                : DbLink::decodeWrongType(key, "value of another type");
  // A key that names no element and is gone again leaves nothing to say.
  bool const goneGarbage = fields == nullptr && error.empty() && decoding.changes.empty();
  if (!decoding.problem.empty() && !goneGarbage) {
    say(Priority::warning, "bad input: " + decoding.problem);
  }
  inputProblemIs(key, goneGarbage ? std::string() : decoding.problem);
  for (auto const& op : decoding.changes) {
    holdInput(op);
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

void DecapAgent::holdInput(Host::InputChange const& change) {
  for (auto& reset : resetAttributes_) {
    if (reset.table == change.table) {
      reset.held = change.flag;
    }
  }
}

bool DecapAgent::takeOwnWrite(std::string_view key, std::string_view event) {
  for (auto& reset : resetAttributes_) {
    if (reset.ownWrites > 0 && event == "hset" && key == Host::inputTable(reset.table).redisName) {
      --reset.ownWrites;
      return true;
    }
  }
  return false;
}

void DecapAgent::forgetOwnWrites() {
  for (auto& reset : resetAttributes_) {
    reset.ownWrites = 0;
  }
}

void DecapAgent::libraryError(std::string const& key, std::string const& what) {
  ++errors_;
  lastError_ = key + ": " + what;
  say(Priority::error, "the library raised while applying " + key + ": " + what);
}

// ---- Writes ----

void DecapAgent::flush() {
  if (state_ != State::running && state_ != State::blocked) {
    return;
  }
  DbLink::WriteBatch batch;
  if (state_ == State::running) {
    harness_->batchDone();
    if (recorder_) {
      recorder_->batchDone();
    }
    for (auto& row : tracker_->take()) {
      if (row.fields) {
        batch.hset(row.key, *row.fields);
      } else {
        batch.del(row.key);
      }
    }
    appendRepairs(batch);
    appendBadInputs(batch);
    appendDecapConfig(batch);
  }
  appendAgentStatus(batch);
  appendLogs(batch);
  auto const transaction = send(batch);
  for (auto& token : std::exchange(batchTokens_, {})) {
    acknowledgeAfter(transaction, std::move(token));
  }
}

void DecapAgent::repair(std::string const& key) {
  repairs_.push_back(key);
}

void DecapAgent::appendRepairs(DbLink::WriteBatch& batch) {
  // Memory's row of each key another client wrote, or its deletion; the derived rows are
  // taken as not held, so that the tracker writes them again. The output rows come from one
  // walk of the tables concerned, however many keys were written.
  std::unordered_set<std::string> outputs;
  std::unordered_set<Host::OutputTable const*> tables;
  for (auto& key : std::exchange(repairs_, {})) {
    auto const table = key.substr(0, key.find('|'));
    if (table == DbLink::kAgentStatus) {
      heldAgentStatus_.reset();
    } else if (table == DbLink::kBadInput) {
      badInputsChanged_.insert(key.substr(std::min(key.size(), table.size() + 1)));
    } else if (table == DbLink::kPwStatus) {
      if (!tracker_->statusRowLost(key)) {
        batch.del(key);
      }
    } else if (auto const* output = Host::outputTableOf(key)) {
      tables.insert(output);
      outputs.insert(std::move(key));
    }
  }
  for (auto const* table : tables) {
    table->forEachRow(*harness_, [&](std::string&& key, Fields&& fields) {
      if (outputs.erase(key) > 0) {
        tracker_->held(key, &fields);
        batch.hset(key, fields, true);
      }
    });
  }
  for (auto const& key : outputs) {
    tracker_->held(key, nullptr);
    batch.del(key);
  }
}

DbLink::Fields DecapAgent::badInputRow(std::string const& problem) {
  return {{std::string(DbLink::kProblemField), problem}};
}

void DecapAgent::inputProblemIs(std::string const& key, std::string const& problem) {
  auto const held = badInputs_.find(key);
  if (problem.empty() ? held == badInputs_.end()
                      : held != badInputs_.end() && held->second == problem) {
    return;
  }
  if (problem.empty()) {
    badInputs_.erase(held);
  } else {
    badInputs_[key] = problem;
  }
  badInputsChanged_.insert(key);
}

void DecapAgent::appendBadInputs(DbLink::WriteBatch& batch) {
  for (auto const& input : std::exchange(badInputsChanged_, {})) {
    auto const key = DbLink::joinKey({DbLink::kBadInput, input});
    auto const held = badInputs_.find(input);
    if (held != badInputs_.end()) {
      batch.hset(key, badInputRow(held->second), true);
    } else {
      batch.del(key);
    }
  }
}

void DecapAgent::appendDecapConfig(DbLink::WriteBatch& batch) {
  // Only the wrapper writes these inputs (its reset at start-up); other changes come from the
  // database and are held already.
  for (auto& reset : resetAttributes_) {
    Host::InputChange set;
    set.table = reset.table;
    set.flag = reset.held;
    if (Host::inputHolds(*harness_, set)) {
      continue;
    }
    set.flag = !reset.held;
    reset.held = set.flag;
    auto const [key, fields] = DbLink::inputRow(set);
    batch.hset(key, fields);
    ++reset.ownWrites;
  }
}

void DecapAgent::appendAgentStatus(DbLink::WriteBatch& batch) {
  Fields status;
  if (syncToken_) {
    status.emplace_back(DbLink::kSyncField, *syncToken_);
  }
  status.emplace_back(DbLink::kErrorsField, DbLink::numberText(errors_));
  status.emplace_back(DbLink::kLastErrorField, lastError_);
  status.emplace_back(DbLink::kStateField, state_ == State::blocked   ? "blocked"
                                           : state_ == State::running ? "running"
                                                                      : "starting");
  status.emplace_back(DbLink::kHeartbeatField, std::to_string(heartbeatMs_));
  status.emplace_back(DbLink::kPidField, std::to_string(::getpid()));
  status.emplace_back(DbLink::kVersionField, VPLS_DECAP_VERSION);
  status.emplace_back(DbLink::kRefusedWritesField, DbLink::numberText(refusedWrites_));
  status.emplace_back(DbLink::kLastRefusalField, lastRefusal_);
  if (heldAgentStatus_ && DbLink::sameFields(*heldAgentStatus_, status)) {
    return;
  }
  heldAgentStatus_ = status;
  batch.hset(std::string(DbLink::kAgentStatus), status);
}

void DecapAgent::appendLogs(DbLink::WriteBatch& batch) {
  if (logsDropped_ > 0) {
    say(Priority::warning, std::to_string(logsDropped_) + " log messages were not written to " +
                               std::string(DbLink::kLogStream) +
                               " (more queued than it could take)");
    logsDropped_ = 0;
  }
  for (auto const& [id, args] : logs_) {
    batch.command({"XADD", std::string(DbLink::kLogStream), "MAXLEN", "~", kLogStreamLength, "*",
                   "id", id, "args", args});
  }
  // Kept until the transaction is answered: a connection lost before then writes them again.
  logsSent_.push_back(SentLogs{
      .generation = generation_,
      .transaction = 0,
      .entries = {std::make_move_iterator(logs_.begin()), std::make_move_iterator(logs_.end())}});
  logs_.clear();
}

std::uint64_t DecapAgent::send(DbLink::WriteBatch& batch) {
  if (batch.empty()) {
    logsSent_.pop_back();  // nothing of this batch was logs either
    return transactionsSent_;
  }
  auto const gen = generation_;
  auto const transaction = ++transactionsSent_;
  logsSent_.back().transaction = transaction;
  std::string fence;
  lease_.appendFence(fence);
  batch.send(*commands_, fence, Lease::kFenceReplies,
             [this, gen, transaction](DbLink::WriteBatch::Result&& result) {
               if (result.ran) {
                 logsWritten(gen, transaction);
               }
               if (gen != generation_) {
                 return;
               }
               auto const& check = result.fenceReplies.size() == Lease::kFenceReplies
                                       ? result.fenceReplies.back()
                                       : DbLink::RedisReply::error("no answer to the fence");
               if (!result.ran && !check.isError() && !Lease::fenceHeld(check)) {
                 leaseLost("another agent");
               } else if (!result.ran || result.failed > 0) {
                 writeRefused(result.firstError);
               } else {
                 written(transaction);
               }
             });
  return transaction;
}

void DecapAgent::written(std::uint64_t transaction) {
  transactionsAnswered_ = transaction;
  backoff_ = kFirstBackoff;
  if (refusing_) {
    refusing_ = false;
    say(Priority::notice, "the state database accepts writes again (" +
                              std::to_string(refusedWrites_) + " refused so far)");
  }
  bool acknowledged = false;
  while (!tokensToAcknowledge_.empty() && tokensToAcknowledge_.front().first <= transaction) {
    syncToken_ = std::move(tokensToAcknowledge_.front().second);
    tokensToAcknowledge_.pop_front();
    acknowledged = true;
  }
  if (acknowledged) {
    flush();
  }
}

void DecapAgent::writeRefused(std::string const& why) {
  // What the server holds is no longer known: the agent reads everything again and writes
  // the differences, with backoff while the server keeps refusing.
  ++refusedWrites_;
  lastRefusal_ = why;
  if (!refusing_) {
    say(Priority::error, "the state database refused a write (" + why +
                             "); writing again from what it holds, with backoff");
    refusing_ = true;
  }
  startOver(connectionNote_);
}

void DecapAgent::acknowledgeAfter(std::uint64_t transaction, std::string token) {
  if (transaction <= transactionsAnswered_) {
    syncToken_ = std::move(token);
    flush();
  } else {
    tokensToAcknowledge_.emplace_back(transaction, std::move(token));
  }
}

void DecapAgent::logsWritten(std::uint64_t generation, std::uint64_t transaction) {
  auto const sent = std::ranges::find_if(logsSent_, [&](SentLogs const& logs) {
    return logs.generation == generation && logs.transaction == transaction;
  });
  if (sent != logsSent_.end()) {
    logsSent_.erase(sent);
  }
}

void DecapAgent::resendLogs() {
  for (auto batch = logsSent_.rbegin(); batch != logsSent_.rend(); ++batch) {
    logs_.insert(logs_.begin(), std::make_move_iterator(batch->entries.begin()),
                 std::make_move_iterator(batch->entries.end()));
  }
  logsSent_.clear();
}

}  // namespace VplsAgent
