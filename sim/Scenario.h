#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <istream>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Hardware/AradIhpLifTable.h"
#include "host/InputChange.h"
#include "host/StartState.h"
#include "host/StateRow.h"

namespace Sim {

// What an op does: change an input element (set or del), ask the show command, restart the
// agent.
enum class OpKind : std::uint8_t { change, show, restart };

// One validated scenario operation: the input change of a set or del, the argument text of a
// show op, and the op's comment.
struct Op {
  OpKind kind = OpKind::restart;
  Host::InputChange change;
  // A change applied in the same batch as the change before it: the chip is not programmed
  // between them (an agent that wrote both in one database transaction).
  bool sameBatch = false;
  std::string showArgs;
  std::string comment;
};

// The op's name as scenarios spell it: "set", "del", "show", "restart".
std::string_view opName(Op const& op);

// One line for people: "set decapLabel Pseudowire1 = 1001", "del vlanTagInfo Pseudowire1 vlan
// 10", "set vxlanPresent = true", "show \"None None None\"", "restart".
std::string describe(Op const& op);

// An op that makes one input change.
Op changeOp(Host::InputChange change);

// A whole scenario file, validated: a scenario object, or a recording (one scenario object
// without events on the first line, then one op per line).
struct Scenario {
  std::string comment;
  bool cleanSlate = true;
  // Toggle name to state; no value means no toggle file at all.
  std::optional<std::map<std::string, bool>> toggles;
  std::uint32_t meshGroups = 4;
  // The rows of the emulated chip's in-LIF table (fewer than the chip's make a small chip).
  std::uint32_t chipRows = Hardware::Marl::AradIhpLifTable::kMaxLifIndex;
  std::vector<Op> before;
  std::vector<Op> events;
  // Output state present before start-up (what an earlier agent left), in file order.
  std::vector<Host::StateRow> outputs;
  // A recording whose last line has no line end was cut short while that line was written:
  // the number of that line, which is left out.
  std::optional<std::size_t> truncatedAtLine;
};

// A scenario that cannot run. what() is one line naming where the problem is (the event
// index or before[i], then the field) and what it is.
class ScenarioError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The toggles a scenario may set (the library's toggle file holds these names).
std::vector<std::string_view> knownToggles();

// The scenario's start state (the comments of its `before` ops left out).
Host::StartState startState(Scenario const& scenario);

// Parses and validates the whole text; the first problem found raises ScenarioError. A text
// that is one JSON value is a scenario object; otherwise, when its first line is a JSON object,
// it is a recording, whose errors name the line ("line 7: key: ...").
Scenario parseScenario(std::string_view text);

// Reads and validates a scenario file; the error message starts with the file's path.
Scenario loadScenario(std::filesystem::path const& path);

// Reads a scenario from a stream to its end (standard input for `run -`) and validates it; the
// error message starts with `name`.
Scenario readScenario(std::istream& in, std::string const& name);

}  // namespace Sim
