// Fuzzes the scenario file parser (sim/Scenario.h) with arbitrary text.
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
#include "FuzzCheck.h"
#include "Netcore/MplsLabel.h"
#include "sim/Scenario.h"

namespace {

// Builds the platform values the runner builds from the op; a range error is a failure.
void requireApplicable(Sim::Op const& op) {
  if (op.kind != Sim::OpKind::set && op.kind != Sim::OpKind::del) {
    return;
  }
  try {
    if (!Sim::isAttribute(op.table)) {
      Fuzz::require(op.pw.isPseudowire(), "an op's key is not a pseudowire");
    }
    if (op.table == Sim::Table::vlanTagInfo) {
      Bridging::VlanId const vlan(op.vlan);
      if (op.kind == Sim::OpKind::set) {
        Bridging::VlanIdOrNone const tag(op.number);
        Fuzz::require(vlan.value() == op.vlan && tag.value() == op.number,
                      "a VLAN or a normalised tag does not fit");
      }
    }
    if (op.table == Sim::Table::decapLabel && op.kind == Sim::OpKind::set) {
      Fuzz::require(Netcore::MplsLabel(op.number).isLabel(), "a decap label is not a label");
    }
    if (op.kind == Sim::OpKind::set && op.table == Sim::Table::vplsPwIntfInfo) {
      Fuzz::require(op.pwIntfInfo.pwIntfId() == op.pw, "a configuration names another key");
    }
  } catch (std::exception const& e) {
    Fuzz::fail(std::string("a validated op does not build: ") + e.what() + " (" +
               Sim::describe(op) + ")");
  }
  Fuzz::require(!Sim::describe(op).empty(), "an op without description");
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
    Fuzz::require(op.kind == Sim::OpKind::set || op.kind == Sim::OpKind::del,
                  "an op before start-up that is not a set or a del");
    requireApplicable(op);
  }
  for (auto const& op : scenario.events) {
    requireApplicable(op);
  }
  return 0;
}
