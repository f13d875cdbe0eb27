#include "dblink/KeyLayout.h"

#include <algorithm>
#include <charconv>

#include "host/InputTables.h"

namespace DbLink {
namespace {

constexpr std::string_view kChannelPrefix = "__keyspace@";

bool isSingleHash(std::string_view table) {
  return table == kAgentSync || table == kSmStatus || table == kAgentStatus;
}

template <class Tables>
bool contains(Tables const& tables, std::string_view table) {
  return std::find(tables.begin(), tables.end(), table) != tables.end();
}

}  // namespace

std::optional<std::string_view> tableOf(std::string_view key) {
  auto const end = key.find(kSeparator);
  auto const table = firstSegment(key);
  bool const known = isInputTable(table) || isOutputTable(table) || table == kAgentSync ||
                     table == kAgentStatus || table == kHwFecIdResponse || table == kBadInput;
  if (!known || isSingleHash(table) != (end == std::string_view::npos)) {
    return std::nullopt;
  }
  return table;
}

bool isInputTable(std::string_view table) {
  auto const tables = Host::inputTables();
  return std::any_of(tables.begin(), tables.end(), [table](auto const& description) {
    return firstSegment(description.redisName) == table;
  });
}

bool isOutputTable(std::string_view table) {
  return contains(kOutputTables, table);
}

std::vector<std::string> ownKeyPrefixes() {
  std::vector<std::string> prefixes;
  for (auto const table : kOutputTables) {
    prefixes.emplace_back(table).append(isSingleHash(table) ? "" : "|");
  }
  prefixes.emplace_back(kBadInput).append("|");
  prefixes.emplace_back(kAgentStatus);
  return prefixes;
}

std::string joinKey(std::initializer_list<std::string_view> segments) {
  std::string key;
  bool first = true;
  for (auto const segment : segments) {
    if (!first) {
      key += kSeparator;
    }
    key += segment;
    first = false;
  }
  return key;
}

std::string_view firstSegment(std::string_view key) {
  return key.substr(0, key.find(kSeparator));
}

std::vector<std::string_view> splitKey(std::string_view key) {
  std::vector<std::string_view> segments;
  std::size_t start = 0;
  for (;;) {
    auto const end = key.find(kSeparator, start);
    segments.push_back(key.substr(start, end - start));
    if (end == std::string_view::npos) {
      return segments;
    }
    start = end + 1;
  }
}

std::vector<std::string> inputChannelPatterns(int db) {
  std::string const prefix = std::string(kChannelPrefix) + std::to_string(db) + "__:";
  std::vector<std::string> patterns;
  for (auto const& description : Host::inputTables()) {
    auto pattern = prefix;
    pattern.append(firstSegment(description.redisName)).append(1, kSeparator).append("*");
    if (!contains(patterns, pattern)) {
      patterns.push_back(std::move(pattern));
    }
  }
  patterns.push_back(prefix + std::string(kAgentSync));
  return patterns;
}

std::optional<std::string_view> keyOfChannel(std::string_view channel) {
  if (!channel.starts_with(kChannelPrefix)) {
    return std::nullopt;
  }
  auto const colon = channel.find("__:");
  if (colon == std::string_view::npos) {
    return std::nullopt;
  }
  return channel.substr(colon + 3);
}

std::string boolText(bool value) {
  return value ? "true" : "false";
}

std::string numberText(std::uint64_t value) {
  return std::to_string(value);
}

}  // namespace DbLink

namespace DbLink {

std::optional<std::uint64_t> readNumber(std::string_view text, std::uint64_t max) {
  std::uint64_t value = 0;
  bool const digits = !text.empty() && text.front() >= '0' && text.front() <= '9';
  auto const [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (!digits || ec != std::errc() || end != text.data() + text.size() || value > max) {
    return std::nullopt;
  }
  return value;
}

std::optional<bool> readBool(std::string_view text) {
  if (text == "true" || text == "false") {
    return text == "true";
  }
  return std::nullopt;
}

bool sameFields(Fields const& a, Fields const& b) {
  if (a.size() != b.size()) {
    return false;
  }
  if (a == b) {
    return true;  // the agent writes the fields of a table in one order, which the server keeps
  }
  Fields sortedA = a;
  Fields sortedB = b;
  std::sort(sortedA.begin(), sortedA.end());
  std::sort(sortedB.begin(), sortedB.end());
  return sortedA == sortedB;
}

}  // namespace DbLink
