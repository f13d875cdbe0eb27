#pragma once

#include <vector>

#include "host/AgentHarness.h"
#include "host/InputChange.h"

namespace Host {

// Writes one input change into the harness's input entities, so that the agent's reactors see
// it as a real notification: a set writes (and notifies) also when the value is unchanged, a
// del of an absent element writes nothing. Lets the library's exceptions pass.
void applyInput(AgentHarness& harness, InputChange const& change);

// Whether the harness's inputs already are what the change would make them: a set's element
// is present with the change's value, a del's element is absent.
bool inputHolds(AgentHarness const& harness, InputChange const& change);

// Every input element the harness holds, as the sets that would write it, table by table in
// key order (the keyed tables only: the attributes always have a value).
std::vector<InputChange> inputElements(AgentHarness const& harness);

}  // namespace Host
