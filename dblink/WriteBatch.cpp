#include "dblink/WriteBatch.h"

#include <memory>

namespace DbLink {

void WriteBatch::hset(std::string const& key, Fields const& fields, bool replace) {
  if (replace) {
    commands_.push_back({"DEL", key});
  }
  std::vector<std::string> args;
  args.reserve(2 + 2 * fields.size());
  args.emplace_back("HSET");
  args.push_back(key);
  for (auto const& [field, value] : fields) {
    args.push_back(field);
    args.push_back(value);
  }
  commands_.push_back(std::move(args));
  ++keys_;
}

void WriteBatch::del(std::string const& key) {
  commands_.push_back({"DEL", key});
  ++keys_;
}

void WriteBatch::send(RedisConnection& connection, Done done) {
  // Queue-time failures (a command the server refuses to queue) answer their own command;
  // run-time failures are elements of EXEC's answer.
  auto queued = std::make_shared<std::pair<std::size_t, std::string>>(0, std::string());
  auto const noteQueued = [queued](RedisReply&& reply) {
    if (reply.isError() && queued->first++ == 0) {
      queued->second = reply.text;
    }
  };
  connection.command({"MULTI"}, noteQueued);
  for (auto const& args : commands_) {
    connection.command(args, noteQueued);
  }
  connection.command({"EXEC"}, [queued, done = std::move(done)](RedisReply&& reply) {
    std::size_t failed = queued->first;
    std::string first = queued->second;
    if (reply.isError() || reply.isNil()) {
      failed = failed == 0 ? 1 : failed;
      if (first.empty()) {
        first = reply.isNil() ? "the transaction was aborted" : reply.text;
      }
    }
    for (auto const& element : reply.elements) {
      if (element.isError() && failed++ == 0) {
        first = element.text;
      }
    }
    if (done) {
      done(failed, first);
    }
  });
  commands_.clear();
  keys_ = 0;
}

}  // namespace DbLink
