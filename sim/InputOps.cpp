#include "sim/InputOps.h"

#include "Bridging/VlanId.h"
#include "Bridging/VlanIdOrNone.h"
#include "Fab/VplsPwIntfVlanKey.h"
#include "Netcore/MplsLabel.h"

namespace Sim {

void applyInput(AgentHarness& harness, Op const& op) {
  if (op.kind != OpKind::set && op.kind != OpKind::del) {
    return;
  }
  auto& pwConfig = *harness.hwVplsPwConfig;
  auto& decapConfig = *harness.hwVplsPwDecapConfig;
  auto& vtepTypeStatus = *harness.vtepTypeStatus;
  bool const set = op.kind == OpKind::set;
  switch (op.table) {
    case Table::vplsPwIntfInfo:
      if (set) {
        pwConfig.vplsPwIntfInfoIs(op.pw, op.pwIntfInfo);
      } else {
        pwConfig.vplsPwIntfInfoDel(op.pw);
      }
      return;
    case Table::decapLabel:
      if (set) {
        decapConfig.decapLabelIs(op.pw, Netcore::MplsLabel(op.number));
      } else {
        decapConfig.decapLabelDel(op.pw);
      }
      return;
    case Table::vlanTagInfo: {
      Fab::VplsPwIntfVlanKey const key(op.pw, Bridging::VlanId(op.vlan));
      if (set) {
        decapConfig.vlanTagInfoIs(key, Bridging::VlanIdOrNone(op.number));
      } else {
        decapConfig.vlanTagInfoDel(key);
      }
      return;
    }
    case Table::encapHwFecId:
      if (set) {
        decapConfig.encapHwFecIdIs(op.pw, op.hwFecIndex);
      } else {
        decapConfig.encapHwFecIdDel(op.pw);
      }
      return;
    case Table::startupSyncDone:
      decapConfig.startupSyncDoneIs(op.flag);
      return;
    case Table::restartDone:
      decapConfig.restartDoneIs(op.flag);
      return;
    case Table::vxlanPresent:
      vtepTypeStatus.vxlanPresentIs(op.flag);
      return;
    case Table::vxlanDciConfigured:
      vtepTypeStatus.vxlanDciConfiguredIs(op.flag);
      return;
  }
}

bool inputHolds(AgentHarness const& harness, Op const& op) {
  auto const& pwConfig = *harness.hwVplsPwConfig;
  auto const& decapConfig = *harness.hwVplsPwDecapConfig;
  auto const& vtep = *harness.vtepTypeStatus;
  bool const set = op.kind == OpKind::set;
  switch (op.table) {
    case Table::vplsPwIntfInfo: {
      auto const* info = pwConfig.vplsPwIntfInfo().find(op.pw);
      return set ? info && *info == op.pwIntfInfo : !info;
    }
    case Table::decapLabel: {
      auto const* label = decapConfig.decapLabel().find(op.pw);
      return set ? label && label->value() == op.number : !label;
    }
    case Table::vlanTagInfo: {
      auto const* tag =
          decapConfig.vlanTagInfo().find(Fab::VplsPwIntfVlanKey(op.pw, Bridging::VlanId(op.vlan)));
      return set ? tag && tag->value() == op.number : !tag;
    }
    case Table::encapHwFecId: {
      auto const* index = decapConfig.encapHwFecId().find(op.pw);
      return set ? index && *index == op.hwFecIndex : !index;
    }
    case Table::startupSyncDone:
      return decapConfig.startupSyncDone() == op.flag;
    case Table::restartDone:
      return decapConfig.restartDone() == op.flag;
    case Table::vxlanPresent:
      return vtep.vxlanPresent() == op.flag;
    case Table::vxlanDciConfigured:
      return vtep.vxlanDciConfigured() == op.flag;
  }
  return false;
}

std::vector<Op> inputElements(AgentHarness const& harness) {
  std::vector<Op> ops;
  auto const element = [&](Table table, Netcore::IntfId pw) -> Op& {
    Op& op = ops.emplace_back();
    op.kind = OpKind::set;
    op.table = table;
    op.pw = pw;
    return op;
  };
  for (auto const& [pw, info] : harness.hwVplsPwConfig->vplsPwIntfInfo()) {
    element(Table::vplsPwIntfInfo, pw).pwIntfInfo = info;
  }
  auto const& decapConfig = *harness.hwVplsPwDecapConfig;
  for (auto const& [pw, label] : decapConfig.decapLabel()) {
    element(Table::decapLabel, pw).number = label.value();
  }
  for (auto const& [key, tag] : decapConfig.vlanTagInfo()) {
    Op& op = element(Table::vlanTagInfo, key.pwIntfId());
    op.vlan = key.vlanId().value();
    op.number = tag.value();
  }
  for (auto const& [pw, index] : decapConfig.encapHwFecId()) {
    element(Table::encapHwFecId, pw).hwFecIndex = index;
  }
  return ops;
}

}  // namespace Sim
