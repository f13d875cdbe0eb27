#pragma once

#include <vector>

#include "sim/AgentHarness.h"
#include "sim/Scenario.h"

namespace Sim {

// Writes one set or del op of an input table into the harness's input entities, so that the
// agent's reactors see it as a real notification: a set writes (and notifies) also when the
// value is unchanged, a del of an absent element writes nothing. Show and restart ops are not
// writes and do nothing here. Lets the library's exceptions pass.
void applyInput(AgentHarness& harness, Op const& op);

// Whether the harness's inputs already are what the op would make them: a set's element is
// present with the op's value, a del's element is absent.
bool inputHolds(AgentHarness const& harness, Op const& op);

// Every input element the harness holds, as the set ops that would write it, table by table
// in key order.
std::vector<Op> inputElements(AgentHarness const& harness);

}  // namespace Sim
