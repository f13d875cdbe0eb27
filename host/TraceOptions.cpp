#include "host/TraceOptions.h"

#include "Trace/Duallog.h"
#include "Trace/Flashlog.h"

namespace Host {

void applyTraceOptions(std::optional<std::string> const& flashlog,
                       std::optional<std::string> const& traceFile, std::optional<int> traceLevel) {
  if (flashlog) {
    Trace::Flashlog::open(*flashlog);
  }
  if (traceFile) {
    Trace::Duallog::outputFileIs(*traceFile);
  }
  if (traceLevel) {
    Trace::Duallog::levelIs("MarlTunnel", *traceLevel);
  }
}

}  // namespace Host
