#pragma once

#include <string_view>
#include <utility>

#include "Hardware/MplsDecapInfo.h"
#include "Hardware/MplsDecapInfoKey.h"
#include "Loom/Collection.h"
#include "Loom/Node.h"
#include "Loom/Ptr.h"
#include "Loom/Publisher.h"
#include "Loom/TypeData.h"

namespace Hardware::MarlTunnel {

// The MPLS decapsulation entries wanted in hardware: per (label, inner tag, third field) the
// entry's value.
//
// Written by this agent's decapsulation state machine; read by the agent that programs the chip,
// which reports progress in MplsDecapStatus. Every write notifies the subscribed reactors
// synchronously, also when the value is unchanged; deleting an absent entry notifies nobody. Runs
// on the agent's scheduler thread; takes no locks.
class MplsDecapConfig : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Hardware::MarlTunnel::MplsDecapConfig";

  // One handler per notifying member; each gets the changed key.
  class Reactor {
   public:
    virtual ~Reactor() = default;
    virtual void onConfig(MplsDecapInfoKey const&) {}
  };

  static Loom::Ptr<MplsDecapConfig> MplsDecapConfigIs();
  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }
  Loom::Publisher<Reactor>& publisher() const { return publisher_; }

  // Per key: the entry wanted; the default entry when absent.
  auto const& config() const { return config_; }
  MplsDecapInfo config(MplsDecapInfoKey const& k) const { return config_.valueOr(k, {}); }
  bool configHas(MplsDecapInfoKey const& k) const { return config_.has(k); }
  void configIs(MplsDecapInfoKey const& k, MplsDecapInfo v) { config_.set(k, std::move(v)); }
  void configDel(MplsDecapInfoKey const& k) { config_.erase(k); }
  void configDelAll() { config_.clear(); }

 private:
  mutable Loom::Publisher<Reactor> publisher_;
  Loom::Collection<MplsDecapInfoKey, MplsDecapInfo, Reactor> config_{publisher_,
                                                                     &Reactor::onConfig};
};

}  // namespace Hardware::MarlTunnel
