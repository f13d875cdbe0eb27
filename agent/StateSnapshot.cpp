#include "agent/StateSnapshot.h"

#include <algorithm>

namespace VplsAgent {

using DbLink::RedisReply;

struct SnapshotReader::Progress {
  DbLink::RedisConnection& connection;
  Done done;
  Failed failed;
  StateSnapshot snapshot;
  std::vector<std::string> keys;
  std::size_t waiting = 0;
};

namespace {

constexpr char kScanBatch[] = "10000";

void readKeys(std::shared_ptr<SnapshotReader::Progress> const& progress);

void onKey(SnapshotReader::Progress& p, std::string const& key, RedisReply&& reply) {
  auto const table = DbLink::tableOf(key);
  auto& s = p.snapshot;
  bool const wrongType = reply.isError();
  if (DbLink::isInputTable(*table)) {
    if (wrongType) {
      s.wrongTypeInputs.emplace_back(key, reply.text);
    } else if (!reply.elements.empty()) {
      s.inputs.emplace_back(key, fieldsOf(std::move(reply)));
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
      s.outputs.emplace(key, fieldsOf(std::move(reply)));
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

void finish(SnapshotReader::Progress& p) {
  auto& inputs = p.snapshot.inputs;
  std::sort(inputs.begin(), inputs.end());
  std::sort(p.snapshot.wrongTypeInputs.begin(), p.snapshot.wrongTypeInputs.end());
  auto done = std::move(p.done);
  done(std::move(p.snapshot));
}

void readKeys(std::shared_ptr<SnapshotReader::Progress> const& progress) {
  auto& p = *progress;
  p.waiting = p.keys.size();
  if (p.waiting == 0) {
    finish(p);
    return;
  }
  std::weak_ptr<SnapshotReader::Progress> const weak = progress;
  for (std::size_t i = 0; i < p.keys.size(); ++i) {
    p.connection.command({"HGETALL", p.keys[i]}, [weak, i](RedisReply&& reply) {
      auto const progress = weak.lock();
      if (!progress || reply.text.starts_with("connection lost") || !progress->failed) {
        return;
      }
      if (reply.isError() && !reply.text.starts_with("WRONGTYPE")) {
        auto failed = std::move(progress->failed);
        failed("HGETALL answered " + reply.text);
        return;
      }
      onKey(*progress, progress->keys[i], std::move(reply));
      if (--progress->waiting == 0) {
        finish(*progress);
      }
    });
  }
}

void scan(std::shared_ptr<SnapshotReader::Progress> const& progress, std::string const& cursor) {
  std::weak_ptr<SnapshotReader::Progress> const weak = progress;
  progress->connection.command({"SCAN", cursor, "COUNT", kScanBatch}, [weak](RedisReply&& reply) {
    auto const progress = weak.lock();
    if (!progress || reply.text.starts_with("connection lost")) {
      return;  // the owner starts over
    }
    if (reply.isError() || reply.elements.size() != 2) {
      auto failed = std::move(progress->failed);
      failed("SCAN answered " + (reply.isError() ? reply.text : std::string("no key list")));
      return;
    }
    auto& p = *progress;
    for (auto& element : reply.elements[1].elements) {
      auto const table = DbLink::tableOf(element.text);
      if (!table) {
        continue;
      }
      if (*table == DbLink::kHwFecIdResponse) {
        p.snapshot.hwFecIdResponses = true;
      } else {
        p.keys.push_back(std::move(element.text));
      }
    }
    auto const& next = reply.elements[0].text;
    if (next == "0") {
      // SCAN may return a key twice.
      std::sort(p.keys.begin(), p.keys.end());
      p.keys.erase(std::unique(p.keys.begin(), p.keys.end()), p.keys.end());
      readKeys(progress);
    } else {
      scan(progress, next);
    }
  });
}

}  // namespace

SnapshotReader::SnapshotReader(DbLink::RedisConnection& connection, Done done, Failed failed)
    : progress_(std::make_shared<Progress>(
          Progress{connection, std::move(done), std::move(failed), {}, {}, 0})) {
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
