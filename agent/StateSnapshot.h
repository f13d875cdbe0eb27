#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Netcore/IntfId.h"
#include "agent/FoundRows.h"
#include "dblink/KeyLayout.h"
#include "dblink/RedisConnection.h"

namespace VplsAgent {

// Everything of the agent's that the state database holds, read in one pass at start-up and
// after every reconnection.
struct StateSnapshot {
  // Input keys that hold a hash, and input keys that hold something else (with the server's
  // answer, in key order).
  FoundRows inputs;
  std::vector<std::pair<std::string, std::string>> wrongTypeInputs;
  // Output keys (pseudowire statuses aside) and their hashes; output keys of another type.
  FoundRows outputs;
  std::vector<std::string> wrongTypeOutputs;
  // The pseudowire statuses (their hashes), by pseudowire.
  std::unordered_map<Netcore::IntfId, DbLink::Fields> pwStatuses;
  // The bad-input keys, by key.
  std::unordered_map<std::string, DbLink::Fields> badInputs;
  // Whether any HW FEC id response exists (the agent then starts without clean slate).
  bool hwFecIdResponses = false;
  // The barrier key's token and the agent status hash, when present.
  std::optional<std::string> syncToken;
  std::optional<DbLink::Fields> agentStatus;
};

// Reads a snapshot: SCAN over the whole database and, as each SCAN answer arrives, its keys of
// the agent's tables with HGETALL, pipelined behind the next SCAN so that the server always has
// the next work queued (at most two SCAN batches wait at a time). `done` runs once with the
// snapshot, unless the connection is lost first or the reader is destroyed (then never);
// `failed` runs instead when the server refuses a read. Runs on the scheduler's thread.
class SnapshotReader {
 public:
  using Done = std::function<void(StateSnapshot&&)>;
  // The server refused a read (a server still loading its data answers "LOADING ..."): the
  // owner starts over later.
  using Failed = std::function<void(std::string const& why)>;
  SnapshotReader(DbLink::RedisConnection& connection, Done done, Failed failed);
  ~SnapshotReader();
  SnapshotReader(SnapshotReader const&) = delete;
  SnapshotReader& operator=(SnapshotReader const&) = delete;

  // What has been read so far; shared with the reply handlers.
  struct Progress;

 private:
  // Shared with the reply handlers, which do nothing once the reader is gone.
  std::shared_ptr<Progress> progress_;
};

// The fields of an HGETALL answer.
DbLink::Fields fieldsOf(DbLink::RedisReply&& reply);

}  // namespace VplsAgent
