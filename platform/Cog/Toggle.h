#pragma once

#include <filesystem>
#include <string_view>

namespace Cog {

inline constexpr char kToggleDirEnv[] = "MARL_TOGGLE_DIR";
inline constexpr char kDefaultToggleDir[] = "/etc/marl/toggles";

// The directory toggle files are read from: what toggleDirIs() set, else MARL_TOGGLE_DIR when
// set and not empty, else /etc/marl/toggles. toggleDirIs("") returns to the environment and the
// default. An agent's host sets it once for the agent's life (its settings), so that no
// environment variable is written inside a running process. Threading: safe from any thread.
void toggleDirIs(std::filesystem::path dir);
std::filesystem::path toggleDir();

// The state of a feature toggle. Toggle files are JSON objects mapping toggle names to true or
// false, e.g. {"MarlTunnelSplitHorizonGroup": false}; file is the name of one in toggleDir().
// An absent directory, file or name gives defaultValue silently. A file that cannot be read,
// is not valid JSON, is not an object, or gives the toggle a value other than true or false
// gives defaultValue after one warning on stderr naming the file and the problem. The file is
// read on every call; callers that want a value fixed for the process cache it.
// Threading: safe from any thread.
bool getToggleState(std::string_view name, std::string_view file, bool defaultValue);

}  // namespace Cog
