#include "agent/StateSnapshot.h"

#include <algorithm>

namespace VplsAgent {

using DbLink::RedisReply;

struct SnapshotReader::Progress {
  DbLink::RedisConnection& connection;
  Done done;
  Failed failed;
  StateSnapshot snapshot;
  // HGETALL blocks sent and not yet answered in full; whether the SCAN has ended.
  std::size_t blocksWaiting = 0;
  bool scanned = false;
};

namespace {

constexpr char kScanBatch[] = "10000";

void onKey(SnapshotReader::Progress& p, std::string const& key, RedisReply&& reply) {
  auto const table = DbLink::tableOf(key);
  auto& s = p.snapshot;
  bool const wrongType = reply.isError();
  if (DbLink::isInputTable(*table)) {
    if (wrongType) {
      s.wrongTypeInputs.emplace_back(key, reply.text);
    } else if (!reply.elements.empty()) {
      s.inputs.add(key, reply.elements);
    }
  } else if (*table == DbLink::kPwStatus) {
    auto const segments = DbLink::splitKey(key);
    try {
      if (segments.size() == 2 && !wrongType) {
        s.pwStatuses.emplace(Netcore::IntfId(segments[1]), fieldsOf(std::move(reply)));
      }
    } catch (std::exception const&) {
      // Not a status the agent wrote; it stays as it is.
    }
  } else if (DbLink::isOutputTable(*table)) {
    if (wrongType) {
      s.wrongTypeOutputs.push_back(key);
    } else if (!reply.elements.empty()) {
      s.outputs.add(key, reply.elements);
    }
  } else if (*table == DbLink::kBadInput) {
    s.badInputs.emplace(key, wrongType ? DbLink::Fields{} : fieldsOf(std::move(reply)));
  } else if (*table == DbLink::kAgentSync && !wrongType) {
    for (auto& [field, value] : fieldsOf(std::move(reply))) {
      if (field == DbLink::kTokenField) {
        s.syncToken = std::move(value);
      }
    }
  } else if (*table == DbLink::kAgentStatus && !wrongType) {
    s.agentStatus = fieldsOf(std::move(reply));
  }
}

template <class Rows, class Key>
void sortUnique(Rows& rows, Key const& key) {
  std::stable_sort(rows.begin(), rows.end(),
                   [&](auto const& a, auto const& b) { return key(a) < key(b); });
  rows.erase(std::unique(rows.begin(), rows.end(),
                         [&](auto const& a, auto const& b) { return key(a) == key(b); }),
             rows.end());
}

void finish(SnapshotReader::Progress& p) {
  // SCAN may return a key twice; its first answer is kept.
  auto& s = p.snapshot;
  sortUnique(s.wrongTypeInputs, [](auto const& row) -> std::string const& { return row.first; });
  sortUnique(s.wrongTypeOutputs, [](std::string const& key) -> std::string const& { return key; });
  auto done = std::move(p.done);
  done(std::move(p.snapshot));
}

// Reads the keys of one SCAN answer: one HGETALL each, sent as one block with one handler.
void readKeys(std::shared_ptr<SnapshotReader::Progress> const& progress,
              std::vector<std::string>&& keys) {
  if (keys.empty()) {
    return;
  }
  std::string commands;
  for (auto const& key : keys) {
    DbLink::appendCommand(commands, {"HGETALL", key});
  }
  struct Block {
    std::vector<std::string> keys;
    std::size_t next = 0;
  };
  auto const block = std::make_shared<Block>(Block{std::move(keys), 0});
  std::weak_ptr<SnapshotReader::Progress> const weak = progress;
  ++progress->blocksWaiting;
  progress->connection.formatted(commands, block->keys.size(), [weak, block](RedisReply&& reply) {
    auto const progress = weak.lock();
    if (!progress || reply.text.starts_with("connection lost") || !progress->failed) {
      return;
    }
    if (reply.isError() && !reply.text.starts_with("WRONGTYPE")) {
      auto failed = std::move(progress->failed);
      failed("HGETALL answered " + reply.text);
      return;
    }
    onKey(*progress, block->keys[block->next], std::move(reply));
    if (++block->next == block->keys.size() && --progress->blocksWaiting == 0 &&
        progress->scanned) {
      finish(*progress);
    }
  });
}

void scan(std::shared_ptr<SnapshotReader::Progress> const& progress, std::string const& cursor) {
  std::weak_ptr<SnapshotReader::Progress> const weak = progress;
  progress->connection.command({"SCAN", cursor, "COUNT", kScanBatch}, [weak](RedisReply&& reply) {
    auto const progress = weak.lock();
    if (!progress || reply.text.starts_with("connection lost") || !progress->failed) {
      return;  // the owner starts over
    }
    if (reply.isError() || reply.elements.size() != 2) {
      auto failed = std::move(progress->failed);
      failed("SCAN answered " + (reply.isError() ? reply.text : std::string("no key list")));
      return;
    }
    auto& p = *progress;
    std::vector<std::string> keys;
    for (auto& element : reply.elements[1].elements) {
      auto const table = DbLink::tableOf(element.text);
      if (!table) {
        continue;
      }
      if (*table == DbLink::kHwFecIdResponse) {
        p.snapshot.hwFecIdResponses = true;
      } else {
        keys.push_back(std::move(element.text));
      }
    }
    auto const& next = reply.elements[0].text;
    p.scanned = next == "0";
    if (!p.scanned) {
      scan(progress, next);  // before this answer's reads: the server has it to do meanwhile
    }
    readKeys(progress, std::move(keys));
    if (p.scanned && p.blocksWaiting == 0) {
      finish(p);
    }
  });
}

}  // namespace

SnapshotReader::SnapshotReader(DbLink::RedisConnection& connection, Done done, Failed failed)
    : progress_(std::make_shared<Progress>(
          Progress{connection, std::move(done), std::move(failed), {}, 0, false})) {
  scan(progress_, "0");
}

SnapshotReader::~SnapshotReader() = default;

DbLink::Fields fieldsOf(RedisReply&& reply) {
  DbLink::Fields fields;
  auto& elements = reply.elements;
  fields.reserve(elements.size() / 2);
  for (std::size_t i = 0; i + 1 < elements.size(); i += 2) {
    fields.emplace_back(std::move(elements[i].text), std::move(elements[i + 1].text));
  }
  return fields;
}

}  // namespace VplsAgent
