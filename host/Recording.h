#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "host/InputChange.h"
#include "host/StartState.h"

// Recordings: what an agent applied, as JSON Lines that the scenario runner replays. Line 1 is
// the start state as a scenario object without events (with its `outputs`), every further line
// one change as a scenario's events hold it, so that a file can be appended to change by change
// and one cut short still replays up to its last whole line. Lines are compact JSON ending in
// "\n"; names are written as UTF-8 with JSON's escapes, bytes that are not UTF-8 as U+FFFD.
namespace Host {

// A change as a scenario's set or del op: {"op": "set", "table": ..., "key": ..., "value": ...},
// with "sameBatch": true when it was applied in one batch with the change before it.
nlohmann::ordered_json changeJson(InputChange const& change, bool sameBatch = false);

// The first line: comment (when not empty), cleanSlate, toggles, meshGroups, before, outputs.
std::string recordingHeaderLine(StartState const& state, std::string const& comment = {});
// One change; `sameBatch`: applied in one batch with the change before it (see the runner's
// `sameBatch`).
std::string recordingChangeLine(InputChange const& change, bool sameBatch = false);
// Any JSON value as one recording line.
std::string recordingLine(nlohmann::ordered_json const& json);

}  // namespace Host
