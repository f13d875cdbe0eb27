#include "dblink/WriteBatch.h"

#include <memory>

namespace DbLink {

void WriteBatch::hset(std::string const& key, Fields const& fields, bool replace) {
  if (replace) {
    appendCommand(commandsText_, {"DEL", key});
    ++commands_;
  }
  std::vector<std::string> args;
  args.reserve(2 + 2 * fields.size());
  args.emplace_back("HSET");
  args.push_back(key);
  for (auto const& [field, value] : fields) {
    args.push_back(field);
    args.push_back(value);
  }
  appendCommand(commandsText_, args);
  ++commands_;
  ++keys_;
}

void WriteBatch::del(std::string const& key) {
  appendCommand(commandsText_, {"DEL", key});
  ++commands_;
  ++keys_;
}

void WriteBatch::command(std::vector<std::string> const& args) {
  appendCommand(commandsText_, args);
  ++commands_;
}

void WriteBatch::send(RedisConnection& connection, Done done) {
  // MULTI, then one "QUEUED" per command (or an error for a command the server refuses to
  // queue), then EXEC's answer: an array with each command's result, or an error or nil for
  // a transaction that did not run.
  struct Progress {
    std::size_t repliesLeft;
    std::size_t failed = 0;
    std::string firstError;
    Done done;
  };
  auto progress = std::make_shared<Progress>(Progress{commands_ + 2, 0, {}, std::move(done)});
  auto const fail = [](Progress& p, std::string const& text) {
    if (p.failed++ == 0) {
      p.firstError = text;
    }
  };
  std::string text;
  text.reserve(commandsText_.size() + 32);
  appendCommand(text, {"MULTI"});
  text += commandsText_;
  appendCommand(text, {"EXEC"});
  connection.formatted(text, commands_ + 2, [progress, fail](RedisReply&& reply) {
    auto& p = *progress;
    bool const exec = --p.repliesLeft == 0 || reply.text.starts_with("connection lost");
    if (reply.isError()) {
      fail(p, reply.text);
    } else if (exec && reply.isNil()) {
      fail(p, "the transaction was aborted");
    }
    for (auto const& element : reply.elements) {
      if (element.isError()) {
        fail(p, element.text);
      }
    }
    if (exec && p.done) {
      auto done = std::move(p.done);
      done(p.failed, p.firstError);
    }
  });
  commandsText_.clear();
  commands_ = 0;
  keys_ = 0;
}

}  // namespace DbLink
