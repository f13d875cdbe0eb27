#pragma once

#include <string>

#include "sim/Scenario.h"

// The writing side of recordings: a scenario as JSON Lines, so that it can be appended to change
// by change and a file cut short still replays up to its last whole line. Line 1 is the scenario
// object without events (with its `outputs`), every further line one op; parseScenario reads
// them back. Lines are compact JSON ending in "\n"; names are written as UTF-8 with JSON's
// escapes, bytes that are not UTF-8 as U+FFFD (a scenario holds only UTF-8 text).
namespace Sim {

// The first line: comment, cleanSlate, toggles, meshGroups, before and outputs of `scenario`;
// its events are not written (they are the lines that follow).
std::string recordingHeaderLine(Scenario const& scenario);

// One op as a scenario's `events` hold it.
std::string recordingOpLine(Op const& op);

}  // namespace Sim
