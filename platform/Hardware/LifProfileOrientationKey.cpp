#include "Hardware/LifProfileOrientationKey.h"

namespace Hardware::MarlTunnel {

std::string LifProfileOrientationKey::toStrep() const {
  std::string text;
  strepInto(text);
  return text;
}

void LifProfileOrientationKey::strepInto(std::string& out) const {
  out.clear();
  group_.appendStrepOpen(out);
  out += ", ";
  out += pwIntfId_.toString();
  out += ')';
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
