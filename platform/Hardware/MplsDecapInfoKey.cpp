#include "Hardware/MplsDecapInfoKey.h"

namespace Hardware::MarlTunnel {

void MplsDecapInfoKey::writeText(Loom::TextWriter& w) const {
  w.beginRecord(typeName);
  w.field("label", label_).field("innerDot1QTag", innerDot1QTag_).field("keyField3", keyField3_);
  w.endRecord();
}

MplsDecapInfoKey MplsDecapInfoKey::readText(Loom::TextReader& r) {
  r.beginRecord(typeName);
  auto const label = r.field<Netcore::MplsLabel>("label");
  auto const tag = r.field<Bridging::VlanIdOrNone>("innerDot1QTag");
  auto const third = r.field<std::uint8_t>("keyField3");
  r.endRecord();
  return MplsDecapInfoKey(label, tag, third);
}

}  // namespace Hardware::MarlTunnel
