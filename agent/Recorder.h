#pragma once

#include <filesystem>
#include <string>

#include "Orb/UniqueFd.h"
#include "agent/StderrLog.h"
#include "host/InputChange.h"
#include "host/StartState.h"

namespace VplsAgent {

// Writes what the agent applied as a recording that the scenario runner replays: the state
// found at start-up as the first line (a scenario without events, with the outputs found),
// then one line per input change applied. Each line goes out in one write(2), so that a
// recording cut short by a kill ends in at most one incomplete line, which the runner drops.
//
// A start never destroys an earlier recording: a file of that name that is not empty is first
// renamed after the UTC time of its last change (FILE.20261125T043015Z, then .1, .2 when that
// name is taken), and a line says where it went.
//
// A write that fails is reported once and ends the recording; the agent goes on without it.
// Runs on the agent's scheduler thread.
class Recorder {
 public:
  // Moves an earlier recording aside and creates the file; std::system_error when it cannot.
  Recorder(std::filesystem::path path, StderrLog log);

  void start(Host::StartState const& found);
  // One change; the changes of one batch after its first are marked as batched with it.
  void record(Host::InputChange const& change);
  // Ends the batch: the agent has written what it applied (the chip programmed its requests).
  void batchDone() { inBatch_ = false; }

 private:
  void writeLine(std::string const& line);

  std::filesystem::path path_;
  StderrLog const log_;
  Orb::UniqueFd fd_;
  // Whether a change of the current batch was recorded.
  bool inBatch_ = false;
};

}  // namespace VplsAgent
