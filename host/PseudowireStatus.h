#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Hardware/Orientation.h"
#include "Netcore/IntfId.h"
#include "host/AgentHarness.h"

namespace Host {

// What a pseudowire is waiting for, as one code. The rules that choose it, and their order,
// are in docs/scenarios.md.
enum class PwStatusCode : std::uint8_t {
  agentStopped,
  waitingForConfiguration,
  standby,
  standbyWaitingForLabel,
  standbyNotProgrammed,
  orientationFailed,
  noGroupUnderDci,
  refusedUnderVxlan,
  fecIdBeforeInstance,
  waitingForInputs,
  programmed,
  partlyProgrammed,
  notProgrammed,
  waitingForChip,
};

// The code as one word, the same word in every output ("programmed", "waitingForInputs", ...).
std::string_view codeName(PwStatusCode code);

// A pseudowire's status: its code and the words people read ("programmed", "standby",
// "waiting for label", "waiting for VLAN tag info, encap FEC id", "waiting for configuration",
// "FEC id arrived before instance (re-publish it)", "orientation allocation failed", "no
// split-horizon group under VXLAN DCI", "split-horizon group refused under VXLAN", "programmed
// for 1 of 2 VLANs", "not programmed", ...). The words name what the code leaves open (which
// inputs are missing, how many VLANs are programmed).
struct PseudowireStatus {
  PwStatusCode code = PwStatusCode::agentStopped;
  std::string words;

  bool operator==(PseudowireStatus const&) const = default;
};

// The status of one pseudowire, derived from the harness's inputs and outputs.
PseudowireStatus pseudowireStatus(AgentHarness const& harness, Netcore::IntfId pw);
// The same with the orientations answered for the pseudowire's requests, in any order, from
// the caller's index of the answers (the overload above walks every answer to find them).
PseudowireStatus pseudowireStatus(
    AgentHarness const& harness, Netcore::IntfId pw,
    std::vector<Hardware::MarlTunnel::Orientation> const& orientations);

// The orientations answered for a pseudowire's requests, each once, in answer order.
std::vector<Hardware::MarlTunnel::Orientation> orientationsOf(AgentHarness const& harness,
                                                              Netcore::IntfId pw);

// Every pseudowire that any input or the state machine knows, in interface order.
std::set<Netcore::IntfId> knownPseudowires(AgentHarness const& harness);
// Whether any input or the state machine knows the pseudowire (it has a status then).
bool pseudowireKnown(AgentHarness const& harness, Netcore::IntfId pw);

// The VLANs of a pseudowire's tag info, with their normalised tags, in VLAN order.
std::vector<std::pair<std::uint16_t, std::uint16_t>> vlanTags(AgentHarness const& harness,
                                                              Netcore::IntfId pw);

}  // namespace Host
