#include "Hardware/VlanAndVplsKey.h"

#include <charconv>

#include "Bridging/VlanIdOrNone.h"

namespace Hardware::MarlTunnel {

VlanAndVplsKey::VlanAndVplsKey(Loom::String const& instanceName, std::uint16_t vlanId,
                               Loom::String const& groupName, bool splitHorizon)
    : instanceName_(instanceName),
      vlanId_(Bridging::VlanIdOrNone(vlanId).value()),
      groupName_(groupName),
      splitHorizon_(splitHorizon) {}

std::size_t VlanAndVplsKey::hash(std::size_t seed) const noexcept {
  seed = instanceName_.hash(seed);
  seed = Loom::hashValue(vlanId_, seed);
  seed = groupName_.hash(seed);
  return Loom::hashValue(static_cast<unsigned>(splitHorizon_), seed);
}

std::string VlanAndVplsKey::toStrep() const {
  std::string text;
  appendStrepOpen(text);
  return text += ')';
}

void VlanAndVplsKey::appendStrepOpen(std::string& out) const {
  char digits[8];
  auto const end = std::to_chars(digits, digits + sizeof digits, vlanId_).ptr;
  out += '(';
  out += instanceName_.str().view();
  out += ", ";
  out.append(digits, end);
  out += ", ";
  out += groupName_.str().view();
  out += splitHorizon_ ? ", 1" : ", 0";
}

void VlanAndVplsKey::writeText(Loom::TextWriter& w) const {
  w.beginRecord(typeName);
  w.field("instanceName", instanceName_.str())
      .field("vlanId", vlanId_)
      .field("groupName", groupName_.str())
      .field("splitHorizon", splitHorizon_);
  w.endRecord();
}

VlanAndVplsKey VlanAndVplsKey::readText(Loom::TextReader& r) {
  r.beginRecord(typeName);
  auto instance = r.field<Loom::String>("instanceName");
  auto const vlan = r.field<std::uint16_t>("vlanId");
  auto group = r.field<Loom::String>("groupName");
  auto const splitHorizon = r.field<bool>("splitHorizon");
  r.endRecord();
  try {
    return VlanAndVplsKey(std::move(instance), vlan, std::move(group), splitHorizon);
  } catch (Loom::RangeError const& e) {
    throw Loom::DeserializationError("vlanId", e.what());
  }
}

}  // namespace Hardware::MarlTunnel
