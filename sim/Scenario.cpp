#include "sim/Scenario.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <span>
#include <sstream>
#include <tuple>
#include <utility>

#include "Loom/RangeError.h"
#include "Netcore/MplsLabel.h"
#include "host/InputTables.h"

namespace Sim {
namespace {

using Json = nlohmann::json;
// Objects in file order, for the output rows.
using OrderedJson = nlohmann::ordered_json;

constexpr std::uint64_t kMaxMeshGroups = 4;

using Host::ChangeKind;
using Host::InputTable;

constexpr std::array kInputTables{
    InputTable::vplsPwIntfInfo, InputTable::decapLabel,         InputTable::vlanTagInfo,
    InputTable::encapHwFecId,   InputTable::startupSyncDone,    InputTable::restartDone,
    InputTable::vxlanPresent,   InputTable::vxlanDciConfigured,
};

constexpr std::array<std::string_view, 8> kTopLevelKeys{
    "comment", "cleanSlate", "toggles", "meshGroups", "chipRows", "before", "events", "outputs"};
// A recording's first line: its events are the lines after it.
constexpr std::array<std::string_view, 7> kRecordingHeaderKeys{
    "comment", "cleanSlate", "toggles", "meshGroups", "chipRows", "before", "outputs"};

constexpr std::string_view kSplitHorizonToggle = "MarlTunnelSplitHorizonGroup";

[[noreturn]] void fail(std::string const& where, std::string const& problem) {
  throw ScenarioError(where.empty() ? problem : where + ": " + problem);
}

// A JSON value as it appears in a message, cut short when long.
std::string shown(Json const& value) {
  constexpr std::size_t kMaxShown = 40;
  std::string text = value.dump(-1, ' ', false, Json::error_handler_t::replace);
  if (text.size() > kMaxShown) {
    text = text.substr(0, kMaxShown) + "...";
  }
  return text;
}

// A name or word from the file as a message shows it: with JSON's escapes for control
// characters, quotes and backslashes, so that the message stays one line.
std::string printable(std::string const& text) {
  std::string const quoted = Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
  return quoted.substr(1, quoted.size() - 2);
}

std::string kindOf(Json const& value) {
  switch (value.type()) {
    case Json::value_t::null:
      return "null";
    case Json::value_t::boolean:
      return "a boolean";
    case Json::value_t::string:
      return "a string";
    case Json::value_t::array:
      return "an array";
    case Json::value_t::object:
      return "an object";
    case Json::value_t::number_float:
      return "a fractional number";
    default:
      return "a number";
  }
}

template <class Names>
std::string joined(Names const& names) {
  std::string out;
  for (auto const& name : names) {
    out += (out.empty() ? "" : ", ") + std::string(name);
  }
  return out;
}

std::string member(std::string const& where, std::string_view field) {
  return where.empty() ? std::string(field) : where + "." + std::string(field);
}

void requireObject(Json const& value, std::string const& where) {
  if (!value.is_object()) {
    fail(where, "must be an object, not " + kindOf(value));
  }
}

template <class Names>
void requireKnownFields(Json const& object, std::string const& where, Names const& allowed,
                        std::string const& what) {
  for (auto const& [field, value] : object.items()) {
    bool known = false;
    for (auto const& name : allowed) {
      known = known || field == name;
    }
    if (!known) {
      fail(member(where, printable(field)),
           "unknown field in " + what + " (allowed: " + joined(allowed) + ")");
    }
  }
}

bool boolean(Json const& value, std::string const& where) {
  if (!value.is_boolean()) {
    fail(where, "must be true or false, not " + kindOf(value) + " (" + shown(value) + ")");
  }
  return value.get<bool>();
}

std::string string(Json const& value, std::string const& where) {
  if (!value.is_string()) {
    fail(where, "must be a string, not " + kindOf(value) + " (" + shown(value) + ")");
  }
  return value.get<std::string>();
}

std::uint64_t integer(Json const& value, std::string const& where, std::uint64_t min,
                      std::uint64_t max) {
  std::string const range = std::to_string(min) + ".." + std::to_string(max);
  if (!value.is_number_integer()) {
    fail(where,
         "must be an integer in " + range + ", not " + kindOf(value) + " (" + shown(value) + ")");
  }
  if (value.is_number_unsigned()) {
    auto const n = value.get<std::uint64_t>();
    if (n >= min && n <= max) {
      return n;
    }
  }
  fail(where, shown(value) + " is out of range " + range);
}

Json const& required(Json const& object, std::string_view field, std::string const& where,
                     std::string const& what) {
  auto const it = object.find(field);
  if (it == object.end()) {
    fail(where, "missing \"" + std::string(field) + "\" " + what);
  }
  return *it;
}

Netcore::IntfId interfaceName(Json const& value, std::string const& where) {
  std::string const name = string(value, where);
  if (!name.empty()) {
    try {
      return Netcore::IntfId(name);
    } catch (Loom::RangeError const&) {
      // reported below
    }
  }
  fail(where, shown(value) + " is not an interface name (expected Pseudowire<1..65535>)");
}

// "a vlanTagInfo key", "an encapHwFecId value".
std::string whatOf(std::string_view table, std::string_view part) {
  bool const vowel =
      !table.empty() && std::string_view("aeiouAEIOU").find(table[0]) != std::string_view::npos;
  return std::string(vowel ? "an " : "a ") + std::string(table) + " " + std::string(part);
}

// One column of a change from its JSON value.
void readColumn(Host::InputColumn const& column, Json const& value, std::string const& where,
                Host::InputChange& change) {
  switch (column.kind) {
    case Host::ColumnKind::pw:
      column.set(change, interfaceName(value, where).toString());
      return;
    case Host::ColumnKind::number:
      column.set(change, integer(value, where, column.min, column.max));
      return;
    case Host::ColumnKind::boolean:
      column.set(change, boolean(value, where));
      return;
    case Host::ColumnKind::text:
      column.set(change, string(value, where));
      return;
  }
}

// The key or the value of a change: one column as the bare JSON value, several as an object.
void readColumns(std::span<Host::InputColumn const> columns, Json const& value,
                 std::string const& where, std::string const& what, Host::InputChange& change) {
  if (columns.size() == 1) {
    readColumn(columns.front(), value, where, change);
    return;
  }
  std::vector<std::string_view> names;
  for (auto const& column : columns) {
    names.push_back(column.name);
  }
  requireObject(value, where);
  requireKnownFields(value, where, names, what);
  for (auto const& column : columns) {
    auto const it = value.find(column.name);
    if (it == value.end() && column.optional) {
      continue;
    }
    auto const& field = it == value.end() ? required(value, column.name, where, "field") : *it;
    readColumn(column, field, member(where, column.name), change);
  }
}

// The op's kind, and for a set or del the change's kind.
std::pair<OpKind, ChangeKind> opKind(Json const& op, std::string const& where) {
  auto const& value = required(op, "op", where, "field (set, del, show or restart)");
  std::string const name = string(value, member(where, "op"));
  if (name == "set" || name == "del") {
    return {OpKind::change, name == "set" ? ChangeKind::set : ChangeKind::del};
  }
  if (name == "show" || name == "restart") {
    return {name == "show" ? OpKind::show : OpKind::restart, ChangeKind::set};
  }
  fail(member(where, "op"),
       "unknown op \"" + printable(name) + "\" (expected set, del, show or restart)");
}

InputTable table(Json const& op, std::string const& where) {
  auto const& value = required(op, "table", where, "field");
  std::string const name = string(value, member(where, "table"));
  for (auto const table : kInputTables) {
    if (name == Host::tableName(table)) {
      return table;
    }
  }
  std::vector<std::string_view> names;
  for (auto const table : kInputTables) {
    names.push_back(Host::tableName(table));
  }
  fail(member(where, "table"),
       "unknown table \"" + printable(name) + "\" (expected " + joined(names) + ")");
}

void readSetOrDel(Json const& json, std::string const& where, Host::InputChange& op) {
  static constexpr std::array<std::string_view, 6> kFields{"op",    "table",   "key",
                                                           "value", "comment", "sameBatch"};
  requireKnownFields(json, where, kFields,
                     std::string(op.kind == ChangeKind::set ? "a set" : "a del") + " op");
  op.table = table(json, where);
  auto const& description = Host::inputTable(op.table);
  bool const hasKey = json.contains("key");
  bool const hasValue = json.contains("value");
  std::string const tableText(description.name);
  if (description.keyColumns.empty()) {
    if (op.kind == ChangeKind::del) {
      fail(where, "del is not possible on the attribute " + tableText + " (set it to false)");
    }
    if (hasKey) {
      fail(member(where, "key"),
           "not allowed: " + tableText + " is an attribute, set it with a value only");
    }
    readColumns(description.valueColumns, required(json, "value", where, "field (true or false)"),
                member(where, "value"), whatOf(tableText, "value"), op);
    return;
  }
  readColumns(description.keyColumns,
              required(json, "key", where, "field (table " + tableText + " needs a key)"),
              member(where, "key"), whatOf(tableText, "key"), op);
  if (op.kind == ChangeKind::del) {
    if (hasValue) {
      fail(member(where, "value"), "not allowed on a del");
    }
    return;
  }
  if (!hasValue) {
    fail(where, "missing \"value\" field (a set of " + tableText + " needs a value)");
  }
  description.prepare(op);
  readColumns(description.valueColumns, json.at("value"), member(where, "value"),
              whatOf(tableText, "value"), op);
}

Op readOp(Json const& json, std::string const& where, bool beforeStart) {
  requireObject(json, where);
  Op op;
  std::tie(op.kind, op.change.kind) = opKind(json, where);
  if (auto const it = json.find("comment"); it != json.end()) {
    op.comment = string(*it, member(where, "comment"));
  }
  switch (op.kind) {
    case OpKind::change:
      readSetOrDel(json, where, op.change);
      if (auto const it = json.find("sameBatch"); it != json.end()) {
        op.sameBatch = boolean(*it, member(where, "sameBatch"));
      }
      return op;
    case OpKind::show: {
      static constexpr std::array<std::string_view, 3> kFields{"op", "args", "comment"};
      requireKnownFields(json, where, kFields, "a show op");
      if (auto const it = json.find("args"); it != json.end()) {
        op.showArgs = string(*it, member(where, "args"));
      }
      break;
    }
    case OpKind::restart: {
      static constexpr std::array<std::string_view, 2> kFields{"op", "comment"};
      requireKnownFields(json, where, kFields, "a restart op");
      break;
    }
  }
  if (beforeStart) {
    fail(member(where, "op"),
         "only set and del are possible before start-up, not " + std::string(opName(op)));
  }
  return op;
}

std::vector<Op> readOps(Json const& list, std::string const& name, bool beforeStart) {
  if (!list.is_array()) {
    fail(name, "must be an array of ops, not " + kindOf(list));
  }
  std::vector<Op> ops;
  ops.reserve(list.size());
  for (std::size_t i = 0; i < list.size(); ++i) {
    std::string const where = name + "[" + std::to_string(i) + "]";
    ops.push_back(readOp(list[i], where, beforeStart));
    if (ops.back().sameBatch && (i == 0 || ops[i - 1].kind != OpKind::change)) {
      fail(member(where, "sameBatch"), "a change is batched only with a change right before it");
    }
  }
  return ops;
}

std::map<std::string, bool> readToggles(Json const& value) {
  requireObject(value, "toggles");
  std::map<std::string, bool> toggles;
  auto const known = knownToggles();
  for (auto const& [name, state] : value.items()) {
    bool isKnown = false;
    for (auto const& k : known) {
      isKnown = isKnown || name == k;
    }
    if (!isKnown) {
      fail("toggles." + printable(name), "unknown toggle (known: " + joined(known) + ")");
    }
    toggles[name] = boolean(state, "toggles." + name);
  }
  return toggles;
}

std::vector<Host::StateRow> readOutputs(OrderedJson const& value) {
  if (!value.is_object()) {
    fail("outputs", "must be an object of output keys, not " + kindOf(Json(value)));
  }
  std::vector<Host::StateRow> rows;
  rows.reserve(value.size());
  for (auto const& [key, hash] : value.items()) {
    std::string const where = "outputs." + printable(key);
    if (!hash.is_object()) {
      fail(where, "must be an object of field names to texts, not " + kindOf(Json(hash)));
    }
    Host::StateRow row{key, {}};
    row.fields.reserve(hash.size());
    for (auto const& [field, text] : hash.items()) {
      row.fields.emplace_back(field, string(Json(text), where + "." + printable(field)));
    }
    rows.push_back(std::move(row));
  }
  return rows;
}

// Parses JSON text; a syntax error or a key given twice in one object becomes a ScenarioError.
OrderedJson parseJson(std::string_view text) {
  std::vector<std::set<std::string>> keysPerObject;
  std::optional<std::string> duplicate;
  auto const watch = [&](int, OrderedJson::parse_event_t event, OrderedJson& parsed) {
    if (event == OrderedJson::parse_event_t::object_start) {
      keysPerObject.emplace_back();
    } else if (event == OrderedJson::parse_event_t::object_end && !keysPerObject.empty()) {
      keysPerObject.pop_back();
    } else if (event == OrderedJson::parse_event_t::key && !keysPerObject.empty() && !duplicate &&
               !keysPerObject.back().insert(parsed.get<std::string>()).second) {
      duplicate = parsed.get<std::string>();
    }
    return true;
  };
  OrderedJson json;
  try {
    json = OrderedJson::parse(text.begin(), text.end(), watch);
  } catch (OrderedJson::exception const& e) {
    // "[json.exception.parse_error.101] parse error at line 2, column 3: ..." without its tag;
    // a number too large for a double is an out_of_range error of the parser, not a parse_error.
    std::string message = e.what();
    if (auto const tagEnd = message.find("] "); tagEnd != std::string::npos) {
      message.erase(0, tagEnd + 2);
    }
    fail("", "invalid JSON: " + message);
  }
  if (duplicate) {
    fail("",
         "invalid scenario: the key \"" + printable(*duplicate) + "\" appears twice in one object");
  }
  return json;
}

// The top-level fields of a scenario object or of a recording's first line.
template <class Names>
void readTopLevel(OrderedJson const& ordered, Names const& allowed, Scenario& scenario) {
  Json const json(ordered);
  requireObject(json, "the scenario");
  for (auto const& [key, value] : json.items()) {
    bool known = false;
    for (auto const name : allowed) {
      known = known || key == name;
    }
    if (!known && key == "events") {
      fail("events",
           "not allowed on the first line of a recording (its events are the lines "
           "after it)");
    }
    if (!known) {
      fail("",
           "unknown top-level key \"" + printable(key) + "\" (allowed: " + joined(allowed) + ")");
    }
  }
  if (auto const it = json.find("comment"); it != json.end()) {
    scenario.comment = string(*it, "comment");
  }
  if (auto const it = json.find("cleanSlate"); it != json.end()) {
    scenario.cleanSlate = boolean(*it, "cleanSlate");
  }
  if (auto const it = json.find("toggles"); it != json.end()) {
    scenario.toggles = readToggles(*it);
  }
  if (auto const it = json.find("meshGroups"); it != json.end()) {
    scenario.meshGroups = static_cast<std::uint32_t>(integer(*it, "meshGroups", 1, kMaxMeshGroups));
  }
  if (auto const it = json.find("chipRows"); it != json.end()) {
    scenario.chipRows = static_cast<std::uint32_t>(
        integer(*it, "chipRows", 1, Hardware::Marl::AradIhpLifTable::kMaxLifIndex));
  }
  if (auto const it = json.find("before"); it != json.end()) {
    scenario.before = readOps(*it, "before", true);
  }
  if (auto const it = json.find("events"); it != json.end()) {
    scenario.events = readOps(*it, "events", false);
  }
  if (auto const it = ordered.find("outputs"); it != ordered.end()) {
    scenario.outputs = readOutputs(*it);
  }
}

// Whether a text that is not one JSON value is a recording: its first line is a JSON object.
bool isRecording(std::string_view text) {
  auto const end = text.find('\n');
  return end != std::string_view::npos &&
         OrderedJson::parse(text.substr(0, end), nullptr, false).is_object();
}

// A recording: the scenario object on line 1, then one op per line, each line ended by "\n".
// A last line without its end was cut short while it was written and is left out.
Scenario parseRecording(std::string_view text) {
  Scenario scenario;
  std::size_t number = 0;
  for (std::size_t begin = 0; begin < text.size();) {
    ++number;
    auto const end = text.find('\n', begin);
    if (end == std::string_view::npos) {
      scenario.truncatedAtLine = number;
      break;
    }
    auto const line = text.substr(begin, end - begin);
    begin = end + 1;
    try {
      auto const json = parseJson(line);
      if (number == 1) {
        readTopLevel(json, kRecordingHeaderKeys, scenario);
      } else {
        scenario.events.push_back(readOp(Json(json), "", false));
      }
    } catch (ScenarioError const& e) {
      // The JSON parser counts lines too; within one line only its column says something.
      std::string problem = e.what();
      static constexpr std::string_view kFirstLine = "invalid JSON: parse error at line 1, column ";
      if (problem.starts_with(kFirstLine)) {
        problem.replace(0, kFirstLine.size(), "invalid JSON: parse error at column ");
      }
      throw ScenarioError("line " + std::to_string(number) + ": " + problem);
    }
  }
  return scenario;
}

}  // namespace

std::string_view opName(Op const& op) {
  switch (op.kind) {
    case OpKind::change:
      return op.change.kind == ChangeKind::set ? "set" : "del";
    case OpKind::show:
      return "show";
    case OpKind::restart:
      return "restart";
  }
  return "?";
}

std::string describe(Op const& op) {
  switch (op.kind) {
    case OpKind::restart:
      return "restart";
    case OpKind::show:
      return "show \"" + printable(op.showArgs) + "\"";
    case OpKind::change:
      break;
  }
  return Host::describe(op.change);
}

Op changeOp(Host::InputChange change) {
  Op op;
  op.kind = OpKind::change;
  op.change = std::move(change);
  return op;
}

Host::StartState startState(Scenario const& scenario) {
  Host::StartState state;
  state.cleanSlate = scenario.cleanSlate;
  state.toggles = scenario.toggles;
  state.meshGroups = scenario.meshGroups;
  state.chipRows = scenario.chipRows;
  for (auto const& op : scenario.before) {
    state.before.push_back(op.change);
  }
  state.outputs = scenario.outputs;
  return state;
}

std::vector<std::string_view> knownToggles() {
  return {kSplitHorizonToggle};
}

Scenario parseScenario(std::string_view text) {
  if (!OrderedJson::accept(text.begin(), text.end()) && isRecording(text)) {
    return parseRecording(text);
  }
  Scenario scenario;
  readTopLevel(parseJson(text), kTopLevelKeys, scenario);
  return scenario;
}

Scenario loadScenario(std::filesystem::path const& path) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) {
    throw ScenarioError(path.string() + ": cannot read the scenario file: it is a directory");
  }
  std::ifstream in(path, std::ios::binary);
  if (!in.is_open()) {
    throw ScenarioError(path.string() + ": cannot read the scenario file: " + std::strerror(errno));
  }
  return readScenario(in, path.string());
}

Scenario readScenario(std::istream& in, std::string const& name) {
  std::ostringstream text;
  // A stream with nothing in it sets failbit here; an empty text is refused by the parser.
  text << in.rdbuf();
  if (in.bad()) {
    throw ScenarioError(name + ": cannot read the scenario");
  }
  try {
    return parseScenario(text.str());
  } catch (ScenarioError const& e) {
    throw ScenarioError(name + ": " + e.what());
  }
}

}  // namespace Sim
