#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Trace {

struct LevelSetting {
  std::string facility;
  int maxLevel = 0;

  bool operator==(LevelSetting const&) const = default;
};

struct LevelList {
  std::vector<LevelSetting> settings;
  std::vector<std::string> problems;  // one text per entry that was ignored, naming it
};

// Parses a list of trace levels as given in MARL_TRACE or a tool's option:
// "MarlTunnel/8,Other/2" enables levels 0..8 of MarlTunnel and 0..2 of Other; a name alone
// ("MarlTunnel") enables all levels 0..9. Entries are separated by commas; blanks around
// them are ignored; empty entries are allowed. A malformed entry is left out and described
// in problems; the valid ones still apply.
LevelList parseLevelList(std::string_view text);

}  // namespace Trace
