#include "Hardware/MplsDecapInfo.h"

namespace Hardware::MarlTunnel {

void MplsDecapInfo::writeText(Loom::TextWriter& w) const {
  w.beginRecord(typeName);
  w.field("name", name_)
      .field("flag", flag_)
      .field("hwFecId", hwFecId_)
      .field("globalInLif", globalInLif_)
      .field("inLifProfile", inLifProfile_)
      .field("key", key_)
      .field("vlanId", vlanId_)
      .field("field8", field8_)
      .field("field9", field9_);
  w.endRecord();
}

MplsDecapInfo MplsDecapInfo::readText(Loom::TextReader& r) {
  r.beginRecord(typeName);
  MplsDecapInfo info;
  info.name_ = r.field<Name>("name");
  info.flag_ = r.field<bool>("flag");
  info.hwFecId_ = r.field<std::uint64_t>("hwFecId");
  info.globalInLif_ = r.field<std::uint32_t>("globalInLif");
  info.inLifProfile_ = r.field<Marl::Jericho2LifProfiles>("inLifProfile");
  info.key_ = r.field<MplsDecapInfoKey>("key");
  info.vlanId_ = r.field<std::uint16_t>("vlanId");
  info.field8_ = r.field<std::uint8_t>("field8");
  info.field9_ = r.field<std::uint16_t>("field9");
  r.endRecord();
  return info;
}

}  // namespace Hardware::MarlTunnel
