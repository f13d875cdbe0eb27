#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "dblink/KeyLayout.h"
#include "dblink/RedisConnection.h"

namespace DbLink {

// The commands of one write to the state database, sent as one pipelined transaction
// (MULTI, the commands, EXEC in one go): other processes see all of it or none of it, and
// the write costs one round trip however many keys it touches. The commands are kept in the
// server's wire format as they are added, so that a write of many keys costs one buffer.
class WriteBatch {
 public:
  // Replaces the hash at `key` with `fields` (a key holding another type or other fields is
  // deleted first when `replace` is set).
  void hset(std::string const& key, Fields const& fields, bool replace = false);
  void del(std::string const& key);
  void command(std::vector<std::string> const& args);

  bool empty() const noexcept { return commands_ == 0; }
  // Keys written or deleted, for the figures.
  std::size_t keys() const noexcept { return keys_; }

  // What the transaction did.
  struct Result {
    // Whether EXEC ran the commands (a refused queueing, a broken watch or a lost connection
    // leave them unrun).
    bool ran = false;
    // How many replies were errors (a transaction that did not run counts as one), and the
    // first one's text.
    std::size_t failed = 0;
    std::string firstError;
    // The replies of the fence's commands, in order.
    std::vector<RedisReply> fenceReplies;
  };
  using Done = std::function<void(Result&&)>;
  // Queues the transaction on the connection, after `fence` (commands in the wire format that
  // answer `fenceReplies` replies, such as a WATCH and a check that may break it), and empties
  // the batch.
  void send(RedisConnection& connection, std::string_view fence, std::size_t fenceReplies,
            Done done);

 private:
  std::string commandsText_;
  std::size_t commands_ = 0;
  std::size_t keys_ = 0;
};

}  // namespace DbLink
