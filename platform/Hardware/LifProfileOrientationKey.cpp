#include "Hardware/LifProfileOrientationKey.h"

namespace Hardware::MarlTunnel {

std::string LifProfileOrientationKey::toStrep() const {
  auto group = group_.toStrep();
  group.pop_back();
  return group + ", " + pwIntfId_.toString() + ")";
}

void LifProfileOrientationKey::writeText(Loom::TextWriter& w) const {
  w.beginRecord(typeName);
  w.field("vlanAndVplsKey", group_).field("pwIntfId", pwIntfId_);
  w.endRecord();
}

LifProfileOrientationKey LifProfileOrientationKey::readText(Loom::TextReader& r) {
  r.beginRecord(typeName);
  auto group = r.field<VlanAndVplsKey>("vlanAndVplsKey");
  auto const pw = r.field<Netcore::IntfId>("pwIntfId");
  r.endRecord();
  return LifProfileOrientationKey(std::move(group), pw);
}

}  // namespace Hardware::MarlTunnel
