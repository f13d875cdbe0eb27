#pragma once

#include <string_view>

namespace Cog {

// One entry of a log-message table: what an operator reads when the message appears. The
// format has one "%s" per argument of Cog::log. The texts are string literals (the entry
// refers to them, it does not copy them).
struct LogMessage {
  std::string_view identifier;  // e.g. "MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN"
  int severity = 0;             // 0 most severe
  std::string_view format;
  std::string_view explanation;
  std::string_view recommendedAction;

  bool operator==(LogMessage const&) const = default;
};

}  // namespace Cog
