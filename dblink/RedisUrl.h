#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace DbLink {

// Where the state database listens: a Unix socket path, or a host and TCP port.
struct RedisEndpoint {
  std::string unixPath;  // empty for TCP
  std::string host;
  std::uint16_t port = 6379;

  bool isUnix() const noexcept { return !unixPath.empty(); }
  // "unix:///run/redis.sock" or "redis://host:port", as given back to people.
  std::string text() const;
};

// A URL the agent cannot use; what() names the URL and the problem.
class RedisUrlError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// Parses "unix:///path/redis.sock" or "redis://host[:port]" (port 6379 when absent; host a name
// or an IPv4 address, or an IPv6 address in brackets).
RedisEndpoint parseRedisUrl(std::string_view url);

}  // namespace DbLink
