#include "host/InputWriter.h"

#include "Bridging/VlanId.h"
#include "Bridging/VlanIdOrNone.h"
#include "Fab/VplsPwIntfVlanKey.h"
#include "Netcore/MplsLabel.h"

namespace Host {

void applyInput(AgentHarness& harness, InputChange const& op) {
  auto& pwConfig = *harness.hwVplsPwConfig;
  auto& decapConfig = *harness.hwVplsPwDecapConfig;
  auto& vtepTypeStatus = *harness.vtepTypeStatus;
  bool const set = op.kind == ChangeKind::set;
  switch (op.table) {
    case InputTable::vplsPwIntfInfo:
      if (set) {
        pwConfig.vplsPwIntfInfoIs(op.pw, op.pwIntfInfo);
      } else {
        pwConfig.vplsPwIntfInfoDel(op.pw);
      }
      return;
    case InputTable::decapLabel:
      if (set) {
        decapConfig.decapLabelIs(op.pw, Netcore::MplsLabel(op.number));
      } else {
        decapConfig.decapLabelDel(op.pw);
      }
      return;
    case InputTable::vlanTagInfo: {
      Fab::VplsPwIntfVlanKey const key(op.pw, Bridging::VlanId(op.vlan));
      if (set) {
        decapConfig.vlanTagInfoIs(key, Bridging::VlanIdOrNone(op.number));
      } else {
        decapConfig.vlanTagInfoDel(key);
      }
      return;
    }
    case InputTable::encapHwFecId:
      if (set) {
        decapConfig.encapHwFecIdIs(op.pw, op.hwFecIndex);
      } else {
        decapConfig.encapHwFecIdDel(op.pw);
      }
      return;
    case InputTable::startupSyncDone:
      decapConfig.startupSyncDoneIs(op.flag);
      return;
    case InputTable::restartDone:
      decapConfig.restartDoneIs(op.flag);
      return;
    case InputTable::vxlanPresent:
      vtepTypeStatus.vxlanPresentIs(op.flag);
      return;
    case InputTable::vxlanDciConfigured:
      vtepTypeStatus.vxlanDciConfiguredIs(op.flag);
      return;
  }
}

bool inputHolds(AgentHarness const& harness, InputChange const& op) {
  auto const& pwConfig = *harness.hwVplsPwConfig;
  auto const& decapConfig = *harness.hwVplsPwDecapConfig;
  auto const& vtep = *harness.vtepTypeStatus;
  bool const set = op.kind == ChangeKind::set;
  switch (op.table) {
    case InputTable::vplsPwIntfInfo: {
      auto const* info = pwConfig.vplsPwIntfInfo().find(op.pw);
      return set ? info && *info == op.pwIntfInfo : !info;
    }
    case InputTable::decapLabel: {
      auto const* label = decapConfig.decapLabel().find(op.pw);
      return set ? label && label->value() == op.number : !label;
    }
    case InputTable::vlanTagInfo: {
      auto const* tag =
          decapConfig.vlanTagInfo().find(Fab::VplsPwIntfVlanKey(op.pw, Bridging::VlanId(op.vlan)));
      return set ? tag && tag->value() == op.number : !tag;
    }
    case InputTable::encapHwFecId: {
      auto const* index = decapConfig.encapHwFecId().find(op.pw);
      return set ? index && *index == op.hwFecIndex : !index;
    }
    case InputTable::startupSyncDone:
      return decapConfig.startupSyncDone() == op.flag;
    case InputTable::restartDone:
      return decapConfig.restartDone() == op.flag;
    case InputTable::vxlanPresent:
      return vtep.vxlanPresent() == op.flag;
    case InputTable::vxlanDciConfigured:
      return vtep.vxlanDciConfigured() == op.flag;
  }
  return false;
}

std::vector<InputChange> inputElements(AgentHarness const& harness) {
  std::vector<InputChange> ops;
  auto const element = [&](InputTable table, Netcore::IntfId pw) -> InputChange& {
    InputChange& op = ops.emplace_back();
    op.table = table;
    op.pw = pw;
    return op;
  };
  for (auto const& [pw, info] : harness.hwVplsPwConfig->vplsPwIntfInfo()) {
    element(InputTable::vplsPwIntfInfo, pw).pwIntfInfo = info;
  }
  auto const& decapConfig = *harness.hwVplsPwDecapConfig;
  for (auto const& [pw, label] : decapConfig.decapLabel()) {
    element(InputTable::decapLabel, pw).number = label.value();
  }
  for (auto const& [key, tag] : decapConfig.vlanTagInfo()) {
    InputChange& op = element(InputTable::vlanTagInfo, key.pwIntfId());
    op.vlan = key.vlanId().value();
    op.number = tag.value();
  }
  for (auto const& [pw, index] : decapConfig.encapHwFecId()) {
    element(InputTable::encapHwFecId, pw).hwFecIndex = index;
  }
  return ops;
}

}  // namespace Host
