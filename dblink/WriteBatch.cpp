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

void WriteBatch::send(RedisConnection& connection, std::string_view fence, std::size_t fenceReplies,
                      Done done) {
  // The fence's replies, MULTI's, then one "QUEUED" per command (or an error for a command the
  // server refuses to queue), then EXEC's answer: an array with each command's result, or an
  // error or nil for a transaction that did not run.
  struct Progress {
    std::size_t fenceLeft;
    std::size_t repliesLeft;
    Result result;
    Done done;
  };
  auto progress = std::make_shared<Progress>(
      Progress{fenceReplies, fenceReplies + commands_ + 2, {}, std::move(done)});
  std::string text;
  text.reserve(fence.size() + commandsText_.size() + 32);
  text += fence;
  appendCommand(text, {"MULTI"});
  text += commandsText_;
  appendCommand(text, {"EXEC"});
  connection.formatted(text, fenceReplies + commands_ + 2, [progress](RedisReply&& reply) {
    auto& p = *progress;
    auto& r = p.result;
    auto const fail = [&r](std::string const& text) {
      if (r.failed++ == 0) {
        r.firstError = text;
      }
    };
    bool const lost = reply.text.starts_with("connection lost");
    bool const exec = --p.repliesLeft == 0 || lost;
    if (p.fenceLeft > 0 && !lost) {
      --p.fenceLeft;
      r.fenceReplies.push_back(std::move(reply));
      return;
    }
    if (reply.isError()) {
      fail(reply.text);
    } else if (exec && reply.isNil()) {
      fail("the transaction did not run (its watched key changed)");
    } else if (exec && reply.kind == RedisReply::Kind::array) {
      r.ran = true;
    }
    for (auto const& element : reply.elements) {
      if (element.isError()) {
        fail(element.text);
      }
    }
    if (exec && p.done) {
      auto done = std::move(p.done);
      done(std::move(r));
    }
  });
  commandsText_.clear();
  commands_ = 0;
  keys_ = 0;
}

}  // namespace DbLink
