// Fuzzes the decoding of the agent's input keys and hashes (dblink/InputRows.h): every input is
// decoded as an absent key, as a key of another type and as the hash it gives.
//
// Input: one byte of choices, then the key and the hash's fields and values, each text ended by
// a backslash and any other byte ("\\" is a backslash; FuzzedDataProvider's framing). Unless bit
// 6 of the choices is set, their low three bits put one of the eight input tables' key prefixes
// in front of the key ("<table>|" for a keyed table, the whole key of an attribute, so that an
// empty key is that attribute's key); bits 3 and 4 pick the type named for a key that is not a
// hash. A field that comes twice keeps its first value, as a hash holds each field once.
//
// Properties: nothing escapes the decoder; a problem is one line without control characters that
// starts with the key as shown (as it is, or quoted with \xHH escapes, perhaps cut with its size
// said) and a colon. A keyed table's key either parses (absent or not a hash, it is one del, for
// which inputRow gives the key back) or gives no op, with or without a hash; a hash on a parsed key
// is one set when the problem is empty, else that del. A set is written back by inputRow as the
// same key and a hash with every given value (numbers by value) and defaults for the rest, which
// decodes to the same op. An attribute's key is always one set of that attribute, to false when
// absent or not a hash; it is good exactly when its only field is `value` with "true" or
// "false", and then sets what it says; it is written back as the same key and hash. Any other key
// gives no op, also one of an attribute's table that is not an attribute's key.

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "FuzzCheck.h"
#include "dblink/InputRows.h"
#include "dblink/KeyLayout.h"
#include "host/InputChange.h"
#include "host/InputTables.h"

namespace {

using DbLink::Fields;
using DbLink::InputDecoding;
using OpKind = Host::ChangeKind;

constexpr std::array<std::string_view, 4> kTypes{"string", "list", "zset", "value of another type"};

template <class Decode>
InputDecoding run(std::string const& what, Decode const& decode) {
  try {
    return decode();
  } catch (std::exception const& e) {
    Fuzz::fail(what + " raised " + e.what());
  } catch (...) {
    Fuzz::fail(what + " raised something that is not an exception");
  }
}

InputDecoding decodeHash(std::string const& key, Fields const& fields) {
  return run("decodeInput(hash)", [&] { return DbLink::decodeInput(key, &fields); });
}

std::optional<std::string_view> valueOf(Fields const& fields, std::string_view field) {
  for (auto const& [name, value] : fields) {
    if (name == field) {
      return value;
    }
  }
  return std::nullopt;
}

// The quoted form of the key at the start of a problem: its bytes, then "\"" and either nothing
// more (the whole key) or "... (<size> bytes)" (a shown prefix). Returns what follows it.
std::optional<std::string_view> afterQuotedKey(std::string_view problem, std::string_view key) {
  static constexpr std::string_view kHex = "0123456789abcdef";
  std::string shown;
  std::size_t i = 1;
  while (i < problem.size() && problem[i] != '"') {
    if (problem[i] != '\\') {
      shown += problem[i++];
      continue;
    }
    if (i + 3 >= problem.size() || problem[i + 1] != 'x' ||
        kHex.find(problem[i + 2]) == std::string_view::npos ||
        kHex.find(problem[i + 3]) == std::string_view::npos) {
      return std::nullopt;
    }
    shown += static_cast<char>(kHex.find(problem[i + 2]) * 16 + kHex.find(problem[i + 3]));
    i += 4;
  }
  if (i == problem.size() || !key.starts_with(shown)) {
    return std::nullopt;
  }
  auto rest = problem.substr(i + 1);
  if (shown.size() == key.size()) {
    return rest;
  }
  std::string const cut = "... (" + std::to_string(key.size()) + " bytes)";
  if (!rest.starts_with(cut)) {
    return std::nullopt;
  }
  return rest.substr(cut.size());
}

void checkProblem(std::string_view what, std::string const& key, std::string const& problem) {
  std::string const context = std::string(what) + " of key " + key + ": problem " + problem;
  Fuzz::require(std::none_of(problem.begin(), problem.end(),
                             [](char c) {
                               auto const byte = static_cast<unsigned char>(c);
                               return byte < 0x20 || byte == 0x7f;
                             }),
                context + ": holds a control character");
  if (problem.empty()) {
    return;
  }
  auto const rest = problem.front() == '"' ? afterQuotedKey(problem, key)
                    : std::string_view(problem).starts_with(key)
                        ? std::optional(std::string_view(problem).substr(key.size()))
                        : std::nullopt;
  Fuzz::require(rest && rest->starts_with(": "), context + ": does not start with the key");
}

// Every given value is in the row (numbers by value: "007" is written as "7"), every other
// field of the row at its default.
void checkRowValues(Fields const& given, Fields const& row, std::string const& context) {
  constexpr auto kAny = std::numeric_limits<std::uint64_t>::max();
  for (auto const& [field, value] : given) {
    auto const written = valueOf(row, field);
    Fuzz::require(written.has_value(), context + ": the row lacks field " + field);
    auto const number = DbLink::readNumber(value, kAny);
    Fuzz::require(*written == value || (number && number == DbLink::readNumber(*written, kAny)),
                  context + ": field " + field + " is written as " + std::string(*written));
  }
  for (auto const& [field, value] : row) {
    Fuzz::require(valueOf(given, field) || value.empty() || value == "false",
                  context + ": field " + field + " not given is written as " + value);
  }
}

void checkKeyed(std::string const& key, Fields const& fields, InputDecoding const& absent,
                InputDecoding const& wrong, InputDecoding const& given) {
  if (!absent.problem.empty()) {
    Fuzz::require(absent.changes.empty() && wrong.changes.empty() && given.changes.empty(),
                  "a key that does not parse gives an op: " + key);
    Fuzz::require(!given.problem.empty(), "a key that does not parse is good with a hash: " + key);
    return;
  }
  Fuzz::require(absent.changes.size() == 1 && absent.changes[0].kind == OpKind::del,
                "an absent key that parses is not one del: " + key);
  auto const del = Host::describe(absent.changes[0]);
  Fuzz::require(DbLink::inputRow(absent.changes[0]).first == key,
                "the key of " + del + " is not the key it was read from: " + key);
  Fuzz::require(wrong.changes.size() == 1 && Host::describe(wrong.changes[0]) == del,
                "a key of another type is not the absent key's del: " + key);
  Fuzz::require(given.changes.size() == 1, "a hash on a key that parses is not one op: " + key);
  if (!given.problem.empty()) {
    Fuzz::require(Host::describe(given.changes[0]) == del,
                  "bad input is not the absent key's del: " + key + ": " + given.problem);
    return;
  }
  auto const& set = given.changes[0];
  auto const shown = Host::describe(set);
  Fuzz::require(set.kind == OpKind::set, "good input is not a set: " + key + ": " + shown);
  auto const [rowKey, row] = DbLink::inputRow(set);
  Fuzz::require(rowKey == key, shown + " is written under another key: " + rowKey);
  checkRowValues(fields, row, "the row of " + shown);
  auto const again = decodeHash(rowKey, row);
  Fuzz::require(again.problem.empty() && again.changes.size() == 1 &&
                    Host::describe(again.changes[0]) == shown,
                "the row of " + shown + " does not decode to it: " + again.problem);
}

void checkAttribute(Host::InputTableDescription const& table, Fields const& fields,
                    InputDecoding const& absent, InputDecoding const& wrong,
                    InputDecoding const& given) {
  std::string const key(table.redisName);
  auto const oneSet = [&](InputDecoding const& decoding, std::string_view what) {
    Fuzz::require(decoding.changes.size() == 1 && decoding.changes[0].kind == OpKind::set &&
                      decoding.changes[0].table == table.table,
                  key + " " + std::string(what) + ": not one set of " + std::string(table.name));
  };
  oneSet(absent, "absent");
  oneSet(wrong, "of another type");
  oneSet(given, "with a hash");
  Fuzz::require(absent.problem.empty() && !wrong.problem.empty(),
                key + ": absent is bad or another type is good");
  Fuzz::require(!absent.changes[0].flag && !wrong.changes[0].flag,
                key + ": absent or of another type, the attribute is not false");
  auto const value = valueOf(fields, "value");
  bool const good = fields.size() == 1 && value && (*value == "true" || *value == "false");
  Fuzz::require(good == given.problem.empty(), key + ": the hash is " + (good ? "good" : "bad") +
                                                   " but the problem is \"" + given.problem + "\"");
  auto const& op = given.changes[0];
  auto const shown = Host::describe(op);
  Fuzz::require(op.flag == (good && *value == "true"),
                key + ": " + shown + " is not what was given");
  auto const [rowKey, row] = DbLink::inputRow(op);
  Fuzz::require(rowKey == key, shown + " is written under another key: " + rowKey);
  auto const again = decodeHash(rowKey, row);
  Fuzz::require(again.problem.empty() && again.changes.size() == 1 &&
                    Host::describe(again.changes[0]) == shown,
                "the row of " + shown + " does not decode to it: " + again.problem);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  auto const choices = data[0];
  FuzzedDataProvider provider(data + 1, size - 1);
  std::string key = provider.ConsumeRandomLengthString();
  auto const tables = Host::inputTables();
  if ((choices & 0x40) == 0) {
    auto const& table = tables[(choices & 7) % tables.size()];
    key = std::string(table.redisName) + (table.keyColumns.empty() ? "" : "|") + key;
  }
  auto const type = kTypes[(choices >> 3) & 3];
  Fields fields;
  while (provider.remaining_bytes() > 0) {
    auto field = provider.ConsumeRandomLengthString();
    auto value = provider.ConsumeRandomLengthString();
    if (!valueOf(fields, field)) {
      fields.emplace_back(std::move(field), std::move(value));
    }
  }

  auto const absent = run("decodeInput(absent)", [&] { return DbLink::decodeInput(key, nullptr); });
  auto const wrong = run("decodeWrongType", [&] { return DbLink::decodeWrongType(key, type); });
  auto const given = decodeHash(key, fields);
  checkProblem("absent", key, absent.problem);
  checkProblem("of another type", key, wrong.problem);
  checkProblem("with a hash", key, given.problem);
  Fuzz::require(!wrong.problem.empty(), "a key of another type is good: " + key);

  auto const table = DbLink::firstSegment(key);
  for (auto const& description : tables) {
    if (description.keyColumns.empty() && description.redisName == key) {
      checkAttribute(description, fields, absent, wrong, given);
      return 0;
    }
    if (!description.keyColumns.empty() && description.redisName == table) {
      checkKeyed(key, fields, absent, wrong, given);
      return 0;
    }
  }
  Fuzz::require(absent.changes.empty() && wrong.changes.empty() && given.changes.empty(),
                "a key of no input table gives an op: " + key);
  Fuzz::require(!absent.problem.empty() && !given.problem.empty(),
                "a key of no input table is good: " + key);
  return 0;
}
