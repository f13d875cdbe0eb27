#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace DbLink {

// One Redis reply, owned: hiredis's reply tree copied into values, so that handlers can keep
// or move what they need.
struct RedisReply {
  enum class Kind : std::uint8_t { string, status, error, integer, nil, array };

  Kind kind = Kind::nil;
  // The text of a string, status or error reply.
  std::string text;
  long long integer = 0;
  std::vector<RedisReply> elements;

  bool isError() const noexcept { return kind == Kind::error; }
  bool isNil() const noexcept { return kind == Kind::nil; }
  static RedisReply error(std::string text) {
    RedisReply reply;
    reply.kind = Kind::error;
    reply.text = std::move(text);
    return reply;
  }
};

}  // namespace DbLink
