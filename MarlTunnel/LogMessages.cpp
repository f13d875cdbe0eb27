#include "MarlTunnel/LogMessages.h"

namespace Hardware::MarlTunnel {

Cog::LogHandle const MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN{Cog::LogMessage{
    .identifier = "MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN",
    .severity = 3,
    .format = "Hardware resources to implement VPLS split horizon filtering are insufficient "
              "to program VPLS PW group %s in instance %s.",
    .explanation = "When VXLAN is configured, the switch has reduced hardware resources to "
                   "implement VPLS split horizon filtering. The switch is unable to program "
                   "all VPLS entries.",
    .recommendedAction = "Reconfigure your network to reduce the number of split horizon PW "
                         "groups in the VPLS instance on the switch, or remove any VXLAN "
                         "configuration on the switch.",
}};

}  // namespace Hardware::MarlTunnel
