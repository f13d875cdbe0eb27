#pragma once

#include <compare>
#include <string_view>

#include "Loom/String.h"
#include "Loom/TextForm.h"
#include "Netcore/IntfId.h"

namespace Fab {

// Key of a pseudowire's additional data: (instance name, group name, pseudowire, split horizon).
class VplsIntfKey {
 public:
  static constexpr std::string_view typeName = "Fab::VplsIntfKey";

  VplsIntfKey() = default;
  VplsIntfKey(Loom::String vplsInstanceName, Loom::String groupName, Netcore::IntfId pwIntfId,
              bool splitHorizon)
      : vplsInstanceName_(std::move(vplsInstanceName)),
        groupName_(std::move(groupName)),
        pwIntfId_(pwIntfId),
        splitHorizon_(splitHorizon) {}

  Loom::String const& vplsInstanceName() const noexcept { return vplsInstanceName_; }
  Loom::String const& groupName() const noexcept { return groupName_; }
  Netcore::IntfId pwIntfId() const noexcept { return pwIntfId_; }
  bool splitHorizon() const noexcept { return splitHorizon_; }

  auto operator<=>(VplsIntfKey const&) const = default;
  std::size_t hash(std::size_t seed = 0) const noexcept;

  void writeText(Loom::TextWriter& w) const;
  static VplsIntfKey readText(Loom::TextReader& r);

 private:
  Loom::String vplsInstanceName_;
  Loom::String groupName_;
  Netcore::IntfId pwIntfId_;
  bool splitHorizon_ = false;
};

}  // namespace Fab
