#include "dblink/InputRows.h"

#include <algorithm>
#include <span>

#include "Loom/RangeError.h"
#include "host/InputTables.h"

namespace DbLink {
namespace {

using Host::ChangeKind;
using Host::ColumnKind;
using Host::InputChange;
using Host::InputColumn;
using Host::InputTableDescription;

// A bad element: the problem, phrased for one log line.
struct BadInput {
  std::string what;
};

std::string shownText(std::string_view text) {
  constexpr std::size_t kShown = 64;
  std::string out = "\"";
  for (char const c : text.substr(0, kShown)) {
    auto const byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte >= 0x7f || c == '"' || c == '\\') {
      static constexpr char kHex[] = "0123456789abcdef";
      out += "\\x";
      out += kHex[byte >> 4];
      out += kHex[byte & 0xf];
    } else {
      out += c;
    }
  }
  out += text.size() > kShown ? "\"... (" + std::to_string(text.size()) + " bytes)" : "\"";
  return out;
}

// The key as it is when it prints on one line, else quoted with escapes.
std::string shownKey(std::string_view key) {
  bool const plain = std::all_of(key.begin(), key.end(), [](char c) {
    return static_cast<unsigned char>(c) >= 0x20 && static_cast<unsigned char>(c) < 0x7f &&
           c != '"' && c != '\\';
  });
  return plain && key.size() <= 200 ? std::string(key) : shownText(key);
}

bool validUtf8(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size()) {
    auto const lead = static_cast<unsigned char>(text[i]);
    std::size_t length = 0;
    std::uint32_t min = 0;
    if (lead < 0x80) {
      ++i;
      continue;
    } else if ((lead & 0xe0) == 0xc0) {
      length = 2;
      min = 0x80;
    } else if ((lead & 0xf0) == 0xe0) {
      length = 3;
      min = 0x800;
    } else if ((lead & 0xf8) == 0xf0) {
      length = 4;
      min = 0x10000;
    } else {
      return false;
    }
    if (i + length > text.size()) {
      return false;
    }
    std::uint32_t code = lead & (0x7fu >> length);
    for (std::size_t k = 1; k < length; ++k) {
      auto const next = static_cast<unsigned char>(text[i + k]);
      if ((next & 0xc0) != 0x80) {
        return false;
      }
      code = (code << 6) | (next & 0x3f);
    }
    if (code < min || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff)) {
      return false;
    }
    i += length;
  }
  return true;
}

Netcore::IntfId pseudowire(std::string_view segment) {
  if (!segment.empty()) {
    try {
      return Netcore::IntfId(segment);
    } catch (Loom::RangeError const&) {
      // reported below
    }
  }
  throw BadInput{"the key does not parse: " + shownText(segment) +
                 " is not an interface name (expected Pseudowire<1..65535>)"};
}

// A key segment: an interface name, or a number in its plain decimal form without leading
// zeros (one element, one key).
void readKeyColumn(InputColumn const& column, std::string_view segment, InputChange& change) {
  if (column.kind == ColumnKind::pw) {
    column.set(change, pseudowire(segment).toString());
    return;
  }
  auto const value = readNumber(segment, column.max);
  if (!value || *value < column.min || numberText(*value) != segment) {
    throw BadInput{"the key does not parse: " + shownText(segment) + " is not a " +
                   std::string(column.name) + " from " + std::to_string(column.min) + " to " +
                   std::to_string(column.max) + " in plain decimal"};
  }
  column.set(change, *value);
}

// A field's text as the column's value.
Host::Cell fieldCell(InputColumn const& column, std::string_view text) {
  std::string const field(column.name);
  switch (column.kind) {
    case ColumnKind::number: {
      auto const value = readNumber(text, column.max);
      if (!value || *value < column.min) {
        throw BadInput{"field " + field + ": " + shownText(text) + " is not a number from " +
                       std::to_string(column.min) + " to " + std::to_string(column.max)};
      }
      return *value;
    }
    case ColumnKind::boolean:
      if (auto const value = readBool(text)) {
        return *value;
      }
      throw BadInput{"field " + field + ": " + shownText(text) +
                     " is not a boolean (true or false)"};
    case ColumnKind::text:
      if (text.size() > column.max) {
        throw BadInput{"field " + field + ": " + shownText(text) + " is longer than " +
                       std::to_string(column.max) + " bytes"};
      }
      if (text.find(kSeparator) != std::string_view::npos) {
        throw BadInput{"field " + field + ": " + shownText(text) +
                       " contains '|', which no name may hold"};
      }
      if (!validUtf8(text)) {
        throw BadInput{"field " + field + ": " + shownText(text) + " is not UTF-8 text"};
      }
      return std::string(text);
    case ColumnKind::pw:
      return pseudowire(text).toString();
  }
  throw BadInput{"field " + field + ": unknown kind"};
}

// Checks that every field of the hash is one of `columns`.
void requireKnownFields(Fields const& fields, std::span<InputColumn const> columns) {
  for (auto const& entry : fields) {
    auto const& field = entry.first;
    bool const known = std::any_of(columns.begin(), columns.end(),
                                   [&](InputColumn const& c) { return c.name == field; });
    if (!known) {
      std::string allowed;
      for (auto const& column : columns) {
        allowed += (allowed.empty() ? "" : ", ") + std::string(column.name);
      }
      throw BadInput{"field " + shownText(field) + " is not one of this table's (" + allowed + ")"};
    }
  }
}

// Sets the change's value columns from the hash; absent optional fields keep their default.
void readValue(InputTableDescription const& table, Fields const& fields, InputChange& change) {
  requireKnownFields(fields, table.valueColumns);
  for (auto const& column : table.valueColumns) {
    auto const field = std::find_if(fields.begin(), fields.end(),
                                    [&](auto const& f) { return f.first == column.name; });
    if (field != fields.end()) {
      column.set(change, fieldCell(column, field->second));
    } else if (!column.optional) {
      throw BadInput{"field " + std::string(column.name) + " is missing"};
    }
  }
}

// The element an input key names, as it is when the key is absent: a keyed element's del, an
// attribute's set to false. Throws BadInput for a key that does not parse.
InputChange absentChange(InputTableDescription const& table,
                         std::vector<std::string_view> const& segments) {
  auto const named = static_cast<std::size_t>(
      std::count(table.redisName.begin(), table.redisName.end(), kSeparator) + 1);
  std::size_t const expected = named + table.keyColumns.size();
  if (segments.size() != expected) {
    throw BadInput{"the key does not parse: expected " + std::to_string(expected) +
                   " segments separated by '|', found " + std::to_string(segments.size())};
  }
  InputChange change;
  change.kind = table.keyColumns.empty() ? ChangeKind::set : ChangeKind::del;
  change.table = table.table;
  for (std::size_t i = 0; i < table.keyColumns.size(); ++i) {
    readKeyColumn(table.keyColumns[i], segments[named + i], change);
  }
  return change;
}

// The input table of a key: a keyed table by its first segment, an attribute by its whole key.
// Throws BadInput for a key of no input table, naming the attribute keys of its table if it has
// some.
InputTableDescription const& tableOfKey(std::string_view key) {
  auto const table = firstSegment(key);
  std::string attributeKeys;
  for (auto const& description : Host::inputTables()) {
    if (!description.keyColumns.empty()) {
      if (description.redisName == table) {
        return description;
      }
      continue;
    }
    if (description.redisName == key) {
      return description;
    }
    if (firstSegment(description.redisName) == table) {
      attributeKeys.append(attributeKeys.empty() ? "" : ", ").append(description.redisName);
    }
  }
  throw BadInput{attributeKeys.empty()
                     ? std::string("the key does not parse: not an input table")
                     : "the key does not parse: not one of the attribute keys " + attributeKeys};
}

}  // namespace

InputDecoding decodeInput(std::string_view key, Fields const* fields) {
  InputDecoding decoding;
  InputTableDescription const* table = nullptr;
  try {
    table = &tableOfKey(key);
    decoding.changes.push_back(absentChange(*table, splitKey(key)));
  } catch (BadInput const& bad) {
    decoding.problem = shownKey(key) + ": " + bad.what;
    return decoding;
  }
  if (fields == nullptr) {
    return decoding;
  }
  try {
    InputChange set = decoding.changes.front();
    table->prepare(set);
    readValue(*table, *fields, set);
    set.kind = ChangeKind::set;
    decoding.changes.front() = std::move(set);
  } catch (BadInput const& bad) {
    decoding.problem = shownKey(key) + ": " + bad.what;
  }
  return decoding;
}

InputDecoding decodeWrongType(std::string_view key, std::string_view type) {
  auto decoding = decodeInput(key, nullptr);
  if (decoding.problem.empty()) {
    decoding.problem =
        shownKey(key) + ": holds a " + std::string(type) + ", not a hash; treated as absent";
  }
  return decoding;
}

std::pair<std::string, Fields> inputRow(InputChange const& change) {
  auto const& table = Host::inputTable(change.table);
  std::string key(table.redisName);
  for (auto const& column : table.keyColumns) {
    key += kSeparator;
    key += Host::columnText(column, change);
  }
  Fields fields;
  for (auto const& column : table.valueColumns) {
    fields.emplace_back(column.name, Host::columnText(column, change));
  }
  return {std::move(key), std::move(fields)};
}

}  // namespace DbLink
