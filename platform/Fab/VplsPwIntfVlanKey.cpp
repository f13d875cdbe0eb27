#include "Fab/VplsPwIntfVlanKey.h"

namespace Fab {

void VplsPwIntfVlanKey::writeText(Loom::TextWriter& w) const {
  w.beginRecord(typeName);
  w.field("pwIntfId", pwIntfId_).field("vlanId", vlanId_);
  w.endRecord();
}

VplsPwIntfVlanKey VplsPwIntfVlanKey::readText(Loom::TextReader& r) {
  r.beginRecord(typeName);
  auto const pw = r.field<Netcore::IntfId>("pwIntfId");
  auto const vlan = r.field<Bridging::VlanId>("vlanId");
  r.endRecord();
  return VplsPwIntfVlanKey(pw, vlan);
}

}  // namespace Fab
