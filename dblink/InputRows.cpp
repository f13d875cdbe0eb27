#include "dblink/InputRows.h"

#include <algorithm>
#include <array>
#include <optional>

#include "Bridging/VlanId.h"
#include "Loom/RangeError.h"
#include "Netcore/MplsLabel.h"

namespace DbLink {
namespace {

using Op = Host::InputChange;
using Host::ChangeKind;
using Table = Host::InputTable;

constexpr std::uint64_t kMaxU32 = 0xffffffffu;
constexpr std::uint64_t kMaxVlan = 4094;
// Instance and group names: enough for any name a configuration holds, and a bound on what a
// name costs in every key and log line that carries it.
constexpr std::size_t kMaxNameLength = 255;

constexpr std::array<std::string_view, 7> kPwIntfInfoFields{
    "vplsInstanceName", "groupName",   "splitHorizon", "standby",
    "vlanAware",        "controlWord", "flowLabel"};

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

std::uint64_t number(std::string_view field, std::string_view text, std::uint64_t min,
                     std::uint64_t max) {
  auto const value = readNumber(text, max);
  if (!value || *value < min) {
    throw BadInput{"field " + std::string(field) + ": " + shownText(text) +
                   " is not a number from " + std::to_string(min) + " to " + std::to_string(max)};
  }
  return *value;
}

bool boolean(std::string_view field, std::string_view text) {
  if (auto const value = readBool(text)) {
    return *value;
  }
  throw BadInput{"field " + std::string(field) + ": " + shownText(text) +
                 " is not a boolean (true or false)"};
}

std::string name(std::string_view field, std::string_view text) {
  if (text.size() > kMaxNameLength) {
    throw BadInput{"field " + std::string(field) + ": " + shownText(text) + " is longer than " +
                   std::to_string(kMaxNameLength) + " bytes"};
  }
  if (text.find(kSeparator) != std::string_view::npos) {
    throw BadInput{"field " + std::string(field) + ": " + shownText(text) +
                   " contains '|', which no name may hold"};
  }
  if (!validUtf8(text)) {
    throw BadInput{"field " + std::string(field) + ": " + shownText(text) + " is not UTF-8 text"};
  }
  return std::string(text);
}

// The fields of a hash by name, with a check that each is one the table knows.
class FieldReader {
 public:
  template <std::size_t N>
  FieldReader(Fields const& fields, std::array<std::string_view, N> const& known)
      : fields_(fields) {
    for (auto const& [field, value] : fields) {
      if (std::find(known.begin(), known.end(), field) == known.end()) {
        std::string allowed;
        for (auto const k : known) {
          allowed += (allowed.empty() ? "" : ", ") + std::string(k);
        }
        throw BadInput{"field " + shownText(field) + " is not one of this table's (" + allowed +
                       ")"};
      }
    }
  }

  std::optional<std::string_view> optional(std::string_view field) const {
    for (auto const& [name, value] : fields_) {
      if (name == field) {
        return value;
      }
    }
    return std::nullopt;
  }
  std::string_view required(std::string_view field) const {
    if (auto const value = optional(field)) {
      return *value;
    }
    throw BadInput{"field " + std::string(field) + " is missing"};
  }
  bool flag(std::string_view field) const {
    auto const value = optional(field);
    return value && boolean(field, *value);
  }

 private:
  Fields const& fields_;
};

Op keyedOp(Table table, std::vector<std::string_view> const& segments) {
  std::size_t const expected = table == Table::vlanTagInfo ? 3 : 2;
  if (segments.size() != expected) {
    throw BadInput{"the key does not parse: expected " + std::to_string(expected) +
                   " segments separated by '|', found " + std::to_string(segments.size())};
  }
  Op op;
  op.kind = ChangeKind::del;
  op.table = table;
  op.pw = pseudowire(segments[1]);
  if (table == Table::vlanTagInfo) {
    // One element, one key: the VLAN in its plain decimal form, without leading zeros.
    auto const vlan = readNumber(segments[2], kMaxVlan);
    if (!vlan || *vlan < 1 || numberText(*vlan) != segments[2]) {
      throw BadInput{"the key does not parse: " + shownText(segments[2]) +
                     " is not a VLAN from 1 to 4094 in plain decimal"};
    }
    op.vlan = static_cast<std::uint16_t>(*vlan);
  }
  return op;
}

void readValue(Op& op, Fields const& fields) {
  switch (op.table) {
    case Table::vplsPwIntfInfo: {
      FieldReader const read(fields, kPwIntfInfoFields);
      auto const text = [&](std::string_view field) {
        auto const value = read.optional(field);
        return value ? name(field, *value) : std::string();
      };
      op.pwIntfInfo = Fab::VplsPwIntfInfo(op.pw)
                          .vplsInstanceNameIs(text("vplsInstanceName"))
                          .groupNameIs(text("groupName"))
                          .splitHorizonIs(read.flag("splitHorizon"))
                          .standbyIs(read.flag("standby"))
                          .vlanAwareIs(read.flag("vlanAware"))
                          .controlWordIs(read.flag("controlWord"))
                          .flowLabelIs(read.flag("flowLabel"));
      return;
    }
    case Table::decapLabel: {
      FieldReader const read(fields, std::array<std::string_view, 1>{"label"});
      op.number = static_cast<std::uint32_t>(
          number("label", read.required("label"), 0, Netcore::MplsLabel::kMaxLabel));
      return;
    }
    case Table::vlanTagInfo: {
      FieldReader const read(fields, std::array<std::string_view, 1>{"tag"});
      op.number = static_cast<std::uint32_t>(number("tag", read.required("tag"), 0, kMaxVlan));
      return;
    }
    case Table::encapHwFecId: {
      FieldReader const read(fields, std::array<std::string_view, 2>{"hwFecId", "globalInLif"});
      auto const hwFecId = number("hwFecId", read.required("hwFecId"), 0, kMaxU32);
      auto const globalInLif = number("globalInLif", read.required("globalInLif"), 0, kMaxU32);
      op.hwFecIndex = Fab::NexthopIndex(static_cast<std::uint32_t>(hwFecId),
                                        static_cast<std::uint32_t>(globalInLif));
      return;
    }
    default:
      return;
  }
}

// The attributes of a single hash and the tables they set, in the contract's order.
struct Attribute {
  std::string_view field;
  Table table;
};
constexpr std::array<Attribute, 2> kDecapConfigAttributes{
    {{"startupSyncDone", Table::startupSyncDone}, {"restartDone", Table::restartDone}}};
constexpr std::array<Attribute, 2> kVtepAttributes{
    {{"vxlanPresent", Table::vxlanPresent}, {"vxlanDciConfigured", Table::vxlanDciConfigured}}};

InputDecoding decodeAttributes(std::string_view key, std::array<Attribute, 2> const& attributes,
                               Fields const* fields) {
  InputDecoding decoding;
  std::array<std::string_view, 2> const known{attributes[0].field, attributes[1].field};
  for (auto const& attribute : attributes) {
    Op op;
    op.kind = ChangeKind::set;
    op.table = attribute.table;
    if (fields != nullptr) {
      try {
        FieldReader const read(*fields, known);
        op.flag = read.flag(attribute.field);
      } catch (BadInput const& bad) {
        if (decoding.problem.empty()) {
          decoding.problem = shownKey(key) + ": " + bad.what;
        }
      }
    }
    decoding.changes.push_back(op);
  }
  return decoding;
}

std::optional<Table> keyedTable(std::string_view table) {
  if (table == kPwIntfInfo) {
    return Table::vplsPwIntfInfo;
  }
  if (table == kDecapLabel) {
    return Table::decapLabel;
  }
  if (table == kVlanTagInfo) {
    return Table::vlanTagInfo;
  }
  if (table == kEncapHwFecId) {
    return Table::encapHwFecId;
  }
  return std::nullopt;
}

}  // namespace

InputDecoding decodeInput(std::string_view key, Fields const* fields) {
  auto const segments = splitKey(key);
  if (segments.size() == 1 && segments[0] == kDecapConfig) {
    return decodeAttributes(key, kDecapConfigAttributes, fields);
  }
  if (segments.size() == 1 && segments[0] == kVtepTypeStatus) {
    return decodeAttributes(key, kVtepAttributes, fields);
  }
  InputDecoding decoding;
  auto const table = keyedTable(segments[0]);
  if (!table) {
    decoding.problem = shownKey(key) + ": the key does not parse: not an input table";
    return decoding;
  }
  try {
    decoding.changes.push_back(keyedOp(*table, segments));
  } catch (BadInput const& bad) {
    decoding.problem = shownKey(key) + ": " + bad.what;
    return decoding;
  }
  if (fields == nullptr) {
    return decoding;
  }
  try {
    Op set = decoding.changes.front();
    readValue(set, *fields);
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

std::pair<std::string, Fields> inputRow(Op const& op) {
  auto const pw = op.pw.toString();
  switch (op.table) {
    case Table::vplsPwIntfInfo: {
      auto const& info = op.pwIntfInfo;
      return {joinKey({kPwIntfInfo, pw}),
              {{"vplsInstanceName", info.vplsInstanceName().str()},
               {"groupName", info.groupName().str()},
               {"splitHorizon", boolText(info.splitHorizon())},
               {"standby", boolText(info.standby())},
               {"vlanAware", boolText(info.vlanAware())},
               {"controlWord", boolText(info.controlWord())},
               {"flowLabel", boolText(info.flowLabel())}}};
    }
    case Table::decapLabel:
      return {joinKey({kDecapLabel, pw}), {{"label", numberText(op.number)}}};
    case Table::vlanTagInfo:
      return {joinKey({kVlanTagInfo, pw, numberText(op.vlan)}), {{"tag", numberText(op.number)}}};
    case Table::encapHwFecId:
      return {joinKey({kEncapHwFecId, pw}),
              {{"hwFecId", numberText(op.hwFecIndex.hwFecId())},
               {"globalInLif", numberText(op.hwFecIndex.globalInLif())}}};
    case Table::startupSyncDone:
      return {std::string(kDecapConfig), {{"startupSyncDone", boolText(op.flag)}}};
    case Table::restartDone:
      return {std::string(kDecapConfig), {{"restartDone", boolText(op.flag)}}};
    case Table::vxlanPresent:
      return {std::string(kVtepTypeStatus), {{"vxlanPresent", boolText(op.flag)}}};
    case Table::vxlanDciConfigured:
      return {std::string(kVtepTypeStatus), {{"vxlanDciConfigured", boolText(op.flag)}}};
  }
  return {};
}

}  // namespace DbLink
