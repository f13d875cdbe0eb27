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

  // What the transaction did: how many of its commands failed, and the first failure's text
  // (also a transaction that did not run at all, or a lost connection).
  using Done = std::function<void(std::size_t failed, std::string const& firstError)>;
  // Queues the transaction on the connection and empties the batch.
  void send(RedisConnection& connection, Done done);

 private:
  std::string commandsText_;
  std::size_t commands_ = 0;
  std::size_t keys_ = 0;
};

}  // namespace DbLink
