#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Hardware/AradIhpLifTable.h"
#include "host/InputChange.h"
#include "host/StateRow.h"

namespace Host {

// The shared state an agent finds when it starts: whether the HW FEC id responses are empty
// (clean slate), the toggle file, the allocator's mesh slots, the input elements already
// written, and the output rows an earlier agent left. A scenario starts from one; a daemon
// records the one it found.
struct StartState {
  bool cleanSlate = true;
  // Toggle name to state; none: no toggle file at all.
  std::optional<std::map<std::string, bool>> toggles;
  std::uint32_t meshGroups = 4;
  // The rows of the emulated chip's in-LIF table.
  std::uint32_t chipRows = Hardware::Marl::AradIhpLifTable::kMaxLifIndex;
  std::vector<InputChange> before;
  std::vector<StateRow> outputs;
};

}  // namespace Host
