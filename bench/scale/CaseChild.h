#pragma once

#include <cstdint>
#include <string>

namespace Bench {

// The option that makes this program a case child, followed by the part ("program", "startup"
// or "show"), the pseudowires and the VLANs per pseudowire.
inline constexpr char kCaseChildOption[] = "--case-child";

// The measuring side of the scale cases, run in a fresh process (see runSelf) on the real agent
// (AgentHarness: the wrapper, the decap state machine, the orientation allocator):
//   "program"  program: the mix written into the inputs of a running agent, pseudowire by
//              pseudowire, the state machine programming everything from the notifications;
//              show: the show command over every entry through the wrapper's command socket
//              callback, with the chip model attached so that the table shadows hold the decap
//              entries (not at sizes whose decap entries outnumber the in-LIF table's rows);
//              teardown: every input deleted again by notifications, until every output is empty;
//   "startup"  startup: the agent started over inputs already present, i.e. the wrapper's
//              start-up and the state machine's start-up walk;
//   "show"     show alone, over the mix programmed by notifications untimed: for the size at the
//              chip's capacity, whose other cases are not measured.
// Floors, measured in the program part: program and startup, the same output entries written
// into fresh entities (OutputFloor::write); teardown, erasing them (OutputFloor::erase); show,
// the answer's bytes written into an in-memory file and read back, as the socket handler does
// with an answer. Hash floors, measured beside them: program and startup, the same entries
// written into unordered standard containers (OutputFloor::writeHashed); teardown, erasing them
// (OutputFloor::eraseHashed); show has none.
//
// Times are the CPU time (user and system) of the thread that runs the agent, which is what the
// agent costs however busy the machine is, and the wall time of the same run. Every measurement
// starts with the agent's state out of the processor's caches, as it is when an agent changes
// state written long before, whatever the size. Results are
// checked (every entry programmed, no failed orientation, nothing left after teardown); a wrong
// result fails the child. Prints one line per case, "<case> <cpu s> <wall s> <floor cpu s>
// <hash floor cpu s> <answer bytes>" (0 for a hash floor or answer the case has not), and
// "skipped <case> <reason>" for a case that cannot run. Returns the exit code.
int runCaseChild(std::string const& part, std::uint32_t pseudowires, std::uint32_t vlans);

}  // namespace Bench
