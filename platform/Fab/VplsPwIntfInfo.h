#pragma once

#include <compare>
#include <cstdint>
#include <string_view>

#include "Loom/String.h"
#include "Loom/TextForm.h"
#include "Netcore/IntfId.h"
#include "Netcore/MplsLabel.h"

namespace Fab {

// The configuration of one pseudowire interface: its VPLS instance and split-horizon group,
// and its flags. The default record (empty id and names, no label, flags clear) stands in for
// a pseudowire whose configuration is absent.
class VplsPwIntfInfo {
 public:
  static constexpr std::string_view typeName = "Fab::VplsPwIntfInfo";
  // Bit of `flags` that says the pseudowire carries a flow label.
  static constexpr std::uint16_t kFlowLabelFlag = 1u << 14;

  VplsPwIntfInfo() = default;
  explicit VplsPwIntfInfo(Netcore::IntfId pwIntfId) : pwIntfId_(pwIntfId) {}

  Netcore::IntfId pwIntfId() const noexcept { return pwIntfId_; }
  Loom::String const& vplsInstanceName() const noexcept { return vplsInstanceName_; }
  Loom::String const& groupName() const noexcept { return groupName_; }
  bool splitHorizon() const noexcept { return splitHorizon_; }
  bool standby() const noexcept { return standby_; }
  bool vlanAware() const noexcept { return vlanAware_; }
  bool controlWord() const noexcept { return controlWord_; }
  // The label the peer expects on frames sent into the pseudowire.
  Netcore::MplsLabel remoteLabel() const noexcept { return remoteLabel_; }
  std::uint16_t flags() const noexcept { return flags_; }
  bool flowLabel() const noexcept { return (flags_ & kFlowLabelFlag) != 0; }
  std::uint8_t pwType() const noexcept { return pwType_; }

  VplsPwIntfInfo& pwIntfIdIs(Netcore::IntfId v) { return set(pwIntfId_, v); }
  VplsPwIntfInfo& vplsInstanceNameIs(Loom::String v) {
    return set(vplsInstanceName_, std::move(v));
  }
  VplsPwIntfInfo& groupNameIs(Loom::String v) { return set(groupName_, std::move(v)); }
  VplsPwIntfInfo& splitHorizonIs(bool v) { return set(splitHorizon_, v); }
  VplsPwIntfInfo& standbyIs(bool v) { return set(standby_, v); }
  VplsPwIntfInfo& vlanAwareIs(bool v) { return set(vlanAware_, v); }
  VplsPwIntfInfo& controlWordIs(bool v) { return set(controlWord_, v); }
  VplsPwIntfInfo& remoteLabelIs(Netcore::MplsLabel v) { return set(remoteLabel_, v); }
  VplsPwIntfInfo& flagsIs(std::uint16_t v) { return set(flags_, v); }
  VplsPwIntfInfo& flowLabelIs(bool on) {
    flags_ = on ? (flags_ | kFlowLabelFlag) : (flags_ & ~kFlowLabelFlag);
    return *this;
  }
  VplsPwIntfInfo& pwTypeIs(std::uint8_t v) { return set(pwType_, v); }

  bool operator==(VplsPwIntfInfo const&) const = default;

  void writeText(Loom::TextWriter& w) const;
  static VplsPwIntfInfo readText(Loom::TextReader& r);

 private:
  template <class T, class V>
  VplsPwIntfInfo& set(T& field, V&& v) {
    field = std::forward<V>(v);
    return *this;
  }

  Netcore::IntfId pwIntfId_;
  Loom::String vplsInstanceName_;
  Loom::String groupName_;
  bool splitHorizon_ = false;
  bool standby_ = false;
  bool vlanAware_ = false;
  bool controlWord_ = false;
  Netcore::MplsLabel remoteLabel_;
  std::uint16_t flags_ = 0;
  std::uint8_t pwType_ = 0;
};

}  // namespace Fab
