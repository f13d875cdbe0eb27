#include "Fab/VplsPwIntfInfo.h"

namespace Fab {

void VplsPwIntfInfo::writeText(Loom::TextWriter& w) const {
  w.beginRecord(typeName);
  w.field("pwIntfId", pwIntfId_)
      .field("vplsInstanceName", vplsInstanceName_)
      .field("groupName", groupName_)
      .field("splitHorizon", splitHorizon_)
      .field("standby", standby_)
      .field("vlanAware", vlanAware_)
      .field("controlWord", controlWord_)
      .field("remoteLabel", remoteLabel_)
      .field("flags", flags_)
      .field("pwType", pwType_);
  w.endRecord();
}

VplsPwIntfInfo VplsPwIntfInfo::readText(Loom::TextReader& r) {
  r.beginRecord(typeName);
  VplsPwIntfInfo info;
  info.pwIntfId_ = r.field<Netcore::IntfId>("pwIntfId");
  info.vplsInstanceName_ = r.field<Loom::String>("vplsInstanceName");
  info.groupName_ = r.field<Loom::String>("groupName");
  info.splitHorizon_ = r.field<bool>("splitHorizon");
  info.standby_ = r.field<bool>("standby");
  info.vlanAware_ = r.field<bool>("vlanAware");
  info.controlWord_ = r.field<bool>("controlWord");
  info.remoteLabel_ = r.field<Netcore::MplsLabel>("remoteLabel");
  info.flags_ = r.field<std::uint16_t>("flags");
  info.pwType_ = r.field<std::uint8_t>("pwType");
  r.endRecord();
  return info;
}

}  // namespace Fab
