#pragma once

#include <optional>
#include <string>

namespace Host {

// The tracing options that the runner and the agent daemon share: the Flashlog file, the file
// that Duallog's text traces go to instead of stderr, and the level of the library's facility
// "MarlTunnel". A file that cannot be opened raises std::runtime_error naming it.
void applyTraceOptions(std::optional<std::string> const& flashlog,
                       std::optional<std::string> const& traceFile, std::optional<int> traceLevel);

}  // namespace Host
