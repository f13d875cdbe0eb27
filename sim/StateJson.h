#pragma once

#include <nlohmann/json.hpp>
#include <vector>

#include "host/AgentHarness.h"
#include "sim/ScenarioRunner.h"

namespace Sim {

// The runner's machine-readable output: the agent's outputs and the decap state machine's
// local state as one JSON object, its members in a fixed order, every list sorted by its key
// fields (interface ids by number), keys of objects in their natural order. Other tools compare
// it field by field, so names, types and meanings do not change.
//
// The members: mplsDecapConfig, labelToPwIntf, decapStatus, encapAdditionalId,
// additionalDataMap, lpoRequest, lpoResponse, intfToLifProfileOrientationKey, esemConfig,
// tagPopPushApp, evecProfileRequest, vplsSmReady, allocatorStartupSyncDoneCalls, localPwInfo,
// esemProgrammed, initialized, logs. While the agent is stopped the state machine's members are
// empty and `initialized` is false.
//
// Reads the harness only; runs on the agent's thread.
nlohmann::ordered_json stateJson(Host::AgentHarness const& harness,
                                 std::vector<LogRecord> const& logs);

// One line of `--json --each`: {"event": I, "state": {...}} with "show" or "error" when the
// step has one.
nlohmann::ordered_json stepJson(StepReport const& step, nlohmann::ordered_json state);

// JSON text of a value, invalid UTF-8 (possible in show output) replaced; indent -1 is compact.
std::string jsonText(nlohmann::ordered_json const& value, int indent = -1);

}  // namespace Sim
