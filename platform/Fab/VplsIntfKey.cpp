#include "Fab/VplsIntfKey.h"

namespace Fab {

std::size_t VplsIntfKey::hash(std::size_t seed) const noexcept {
  seed = vplsInstanceName_.hash(seed);
  seed = groupName_.hash(seed);
  seed = pwIntfId_.hash(seed);
  return Loom::hashValue(static_cast<unsigned>(splitHorizon_), seed);
}

void VplsIntfKey::writeText(Loom::TextWriter& w) const {
  w.beginRecord(typeName);
  w.field("vplsInstanceName", vplsInstanceName_)
      .field("groupName", groupName_)
      .field("pwIntfId", pwIntfId_)
      .field("splitHorizon", splitHorizon_);
  w.endRecord();
}

VplsIntfKey VplsIntfKey::readText(Loom::TextReader& r) {
  r.beginRecord(typeName);
  auto instance = r.field<Loom::String>("vplsInstanceName");
  auto group = r.field<Loom::String>("groupName");
  auto const pw = r.field<Netcore::IntfId>("pwIntfId");
  auto const splitHorizon = r.field<bool>("splitHorizon");
  r.endRecord();
  return VplsIntfKey(std::move(instance), std::move(group), pw, splitHorizon);
}

}  // namespace Fab
