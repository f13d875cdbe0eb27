#include "Hardware/EsemConfigKeyVpls.h"

namespace Hardware::MarlTunnel {

void EsemConfigKeyVpls::writeText(Loom::TextWriter& w) const {
  w.beginRecord(typeName);
  w.field("vlanDomain", vlanDomain_).field("vlanId", vlanId_).field("keyField3", keyField3_);
  w.endRecord();
}

EsemConfigKeyVpls EsemConfigKeyVpls::readText(Loom::TextReader& r) {
  r.beginRecord(typeName);
  auto const domain = r.field<std::uint32_t>("vlanDomain");
  auto const vlan = r.field<std::uint16_t>("vlanId");
  auto const third = r.field<std::uint16_t>("keyField3");
  r.endRecord();
  return EsemConfigKeyVpls(domain, vlan, third);
}

}  // namespace Hardware::MarlTunnel
