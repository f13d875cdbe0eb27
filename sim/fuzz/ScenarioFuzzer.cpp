// Fuzzes the scenario file parser (sim/Scenario.h) with arbitrary text. Built with the other
// fuzz targets (fuzz/CMakeLists.txt); it lives with the runner it fuzzes.
//
// Properties: parseScenario either returns a scenario or raises ScenarioError, whose message
// is one line; nothing else escapes. A scenario it returns holds only what the runner can
// apply without a range error: the platform value types build from every op's values, the
// mesh groups are in 1..4 and the ops before start-up are sets and deletes.

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

#include "Bridging/VlanId.h"
#include "Bridging/VlanIdOrNone.h"
#include "Netcore/MplsLabel.h"
#include "fuzz/FuzzCheck.h"
#include "sim/Scenario.h"

namespace {

// Builds the platform values the runner builds from the op; a range error is a failure.
void requireApplicable(Sim::Op const& scenarioOp) {
  if (scenarioOp.kind != Sim::OpKind::change) {
    return;
  }
  auto const& op = scenarioOp.change;
  using Host::ChangeKind;
  using Host::InputTable;
  try {
    if (!Host::isAttribute(op.table)) {
      Fuzz::require(op.pw.isPseudowire(), "an op's key is not a pseudowire");
    }
    if (op.table == InputTable::vlanTagInfo) {
      Bridging::VlanId const vlan(op.vlan);
      if (op.kind == ChangeKind::set) {
        Bridging::VlanIdOrNone const tag(op.number);
        Fuzz::require(vlan.value() == op.vlan && tag.value() == op.number,
                      "a VLAN or a normalised tag does not fit");
      }
    }
    if (op.table == InputTable::decapLabel && op.kind == ChangeKind::set) {
      Fuzz::require(Netcore::MplsLabel(op.number).isLabel(), "a decap label is not a label");
    }
    if (op.kind == ChangeKind::set && op.table == InputTable::vplsPwIntfInfo) {
      Fuzz::require(op.pwIntfInfo.pwIntfId() == op.pw, "a configuration names another key");
    }
  } catch (std::exception const& e) {
    Fuzz::fail(std::string("a validated op does not build: ") + e.what() + " (" +
               Sim::describe(scenarioOp) + ")");
  }
  Fuzz::require(!Sim::describe(scenarioOp).empty(), "an op without description");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const text(reinterpret_cast<char const*>(data), size);
  Sim::Scenario scenario;
  try {
    scenario = Sim::parseScenario(text);
  } catch (Sim::ScenarioError const& e) {
    Fuzz::require(Fuzz::isOneLine(e.what()),
                  std::string("a scenario error that is not one line: ") + e.what());
    return 0;
  } catch (std::exception const& e) {
    Fuzz::fail(std::string("parseScenario raised something other than ScenarioError: ") + e.what());
  }
  Fuzz::require(scenario.meshGroups >= 1 && scenario.meshGroups <= 4, "mesh groups out of range");
  for (auto const& op : scenario.before) {
    Fuzz::require(op.kind == Sim::OpKind::change,
                  "an op before start-up that is not a set or a del");
    requireApplicable(op);
  }
  for (auto const& op : scenario.events) {
    requireApplicable(op);
  }
  return 0;
}
