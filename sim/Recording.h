#pragma once

#include <string>

#include "sim/Scenario.h"

// A scenario as a recording (host/Recording.h): the runner writes its own scenarios in the
// form an agent records, so that the two can be compared line by line.
namespace Sim {

// The first line: the scenario's comment and start state; its events are not written (they are
// the lines that follow).
std::string recordingHeaderLine(Scenario const& scenario);

// One op as a scenario's `events` hold it, with its comment.
std::string recordingOpLine(Op const& op);

}  // namespace Sim
