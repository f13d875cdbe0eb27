#pragma once

#include <string>
#include <vector>

namespace Bench {

// Runs this program again as a child process with `args` and returns what it printed on stdout.
// A fresh process measures on a fresh heap: every size and case pays for the memory it takes
// from the system, as an agent starting up does, and no size reuses what another freed. Throws
// std::runtime_error when the child cannot start or does not exit with 0.
std::string runSelf(std::vector<std::string> const& args);

}  // namespace Bench
