#include "MarlTunnel/MarlTrace.h"

namespace Hardware::MarlTunnel {

Trace::Facility& marlTunnelFacility() {
  static Trace::Facility& facility = Trace::facility("MarlTunnel");
  return facility;
}

}  // namespace Hardware::MarlTunnel
