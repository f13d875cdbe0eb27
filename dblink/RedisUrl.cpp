#include "dblink/RedisUrl.h"

#include <sys/un.h>

#include <algorithm>
#include <cctype>
#include <charconv>

namespace DbLink {

namespace {

[[noreturn]] void reject(std::string_view url, std::string_view problem) {
  std::string message = "bad Redis URL \"";
  for (char const c : url) {
    // Keep the message on one line whatever the URL holds.
    message += std::isprint(static_cast<unsigned char>(c)) != 0 ? c : '?';
  }
  message += "\": ";
  message += problem;
  throw RedisUrlError(message);
}

bool isHostNameChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '.' || c == '_';
}

bool isIpv6Char(char c) {
  // Hex digits and colons, dots for an embedded IPv4 tail, '%' and a name for a zone.
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == ':' || c == '.' || c == '%';
}

std::uint16_t parsePort(std::string_view url, std::string_view text) {
  if (text.empty()) {
    reject(url, "empty port after ':'");
  }
  unsigned value = 0;
  auto const [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc{} || end != text.data() + text.size() ||
      !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    reject(url, "port \"" + std::string(text) + "\" is not a number from 1 to 65535");
  }
  if (value == 0 || value > 65535) {
    reject(url, "port " + std::string(text) + " is out of range (1 to 65535)");
  }
  return static_cast<std::uint16_t>(value);
}

RedisEndpoint parseUnix(std::string_view url, std::string_view path) {
  if (path.empty()) {
    reject(url, "empty socket path");
  }
  if (path.front() != '/') {
    reject(url, "socket path \"" + std::string(path) +
                    "\" is relative; write unix:///absolute/path (three slashes)");
  }
  if (path.find('\0') != std::string_view::npos) {
    reject(url, "socket path holds a NUL byte");
  }
  if (path.size() >= sizeof(sockaddr_un{}.sun_path)) {
    reject(url, "socket path is " + std::to_string(path.size()) + " bytes long; at most " +
                    std::to_string(sizeof(sockaddr_un{}.sun_path) - 1) + " fit");
  }
  RedisEndpoint endpoint;
  endpoint.unixPath = std::string(path);
  return endpoint;
}

RedisEndpoint parseTcp(std::string_view url, std::string_view authority) {
  if (authority.find('@') != std::string_view::npos) {
    reject(url, "credentials (user@ or user:password@) are not supported");
  }
  if (auto const at = authority.find_first_of("/?#"); at != std::string_view::npos) {
    reject(url, "\"" + std::string(authority.substr(at)) +
                    "\" after the host: paths (database numbers) and options are not supported");
  }
  RedisEndpoint endpoint;
  std::string_view rest;
  if (!authority.empty() && authority.front() == '[') {
    auto const close = authority.find(']');
    if (close == std::string_view::npos) {
      reject(url, "IPv6 address without its closing ']'");
    }
    auto const host = authority.substr(1, close - 1);
    if (host.empty() || !std::all_of(host.begin(), host.end(), isIpv6Char) ||
        host.find(':') == std::string_view::npos) {
      reject(url, "\"" + std::string(host) + "\" in brackets is not an IPv6 address");
    }
    endpoint.host = std::string(host);
    rest = authority.substr(close + 1);
  } else {
    auto const colon = authority.find(':');
    auto const host = authority.substr(0, colon);
    if (colon != std::string_view::npos &&
        authority.find(':', colon + 1) != std::string_view::npos) {
      reject(url, "an IPv6 address must be written in brackets, as in redis://[::1]:6379");
    }
    if (host.empty()) {
      reject(url, "empty host");
    }
    if (!std::all_of(host.begin(), host.end(), isHostNameChar)) {
      reject(url, "\"" + std::string(host) + "\" is not a host name or address");
    }
    endpoint.host = std::string(host);
    rest = colon == std::string_view::npos ? std::string_view{} : authority.substr(colon);
  }
  if (!rest.empty()) {
    if (rest.front() != ':') {
      reject(url, "unexpected \"" + std::string(rest) + "\" after the host");
    }
    endpoint.port = parsePort(url, rest.substr(1));
  }
  return endpoint;
}

}  // namespace

std::string RedisEndpoint::text() const {
  if (isUnix()) {
    return "unix://" + unixPath;
  }
  bool const bracketed = host.find(':') != std::string::npos;
  return "redis://" + (bracketed ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

RedisEndpoint parseRedisUrl(std::string_view url) {
  auto const separator = url.find("://");
  if (separator == std::string_view::npos) {
    reject(url, "no scheme; expected unix:///path or redis://host[:port]");
  }
  std::string scheme(url.substr(0, separator));
  std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  auto const rest = url.substr(separator + 3);
  if (scheme == "unix") {
    return parseUnix(url, rest);
  }
  if (scheme == "redis") {
    return parseTcp(url, rest);
  }
  reject(url, "unknown scheme \"" + std::string(url.substr(0, separator)) +
                  "\"; expected unix:// or redis://");
}

}  // namespace DbLink
