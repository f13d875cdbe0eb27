#include "agent/StandInSocket.h"

#include <stdexcept>

#include "MarlTunnel/VplsSmWrapper.h"
#include "Orb/AgentSocketCallback.h"

namespace VplsAgent {

// The show command's stand-in: every request fails with the agent's reason, which the socket
// handler sends as its one error line.
class StandInShowCallback final : public Orb::AgentSocketCallback {
 public:
  StandInShowCallback(Loom::String handlerName, std::string reason)
      : Orb::AgentSocketCallback(std::move(handlerName),
                                 Hardware::MarlTunnel::VplsSmWrapper::kShowCommand),
        reason_(std::move(reason)) {}

  void reasonIs(std::string reason) { reason_ = std::move(reason); }
  void handleCommand(std::uint32_t, Loom::String const&) override {
    throw std::runtime_error(reason_);
  }

 private:
  std::string reason_;
};

StandInSocket::StandInSocket(std::optional<std::string> const& socketDir, std::string reason)
    : ownsSocketDir_(socketDir.has_value()) {
  if (socketDir) {
    Orb::AgentSocketHandlerSm::socketDirIs(*socketDir);
  }
  handler_ = Orb::AgentSocketHandlerSm::AgentSocketHandlerSmIs(
      Hardware::MarlTunnel::VplsSmWrapper::kAgentSocketName);
  callback_ = Loom::make<StandInShowCallback>(handler_->name(), std::move(reason));
  handler_->agentSocketCallbackIs(callback_);
  handler_->hasNotificationActiveIs(true);
}

StandInSocket::~StandInSocket() {
  handler_->hasNotificationActiveIs(false);
  if (ownsSocketDir_) {
    Orb::AgentSocketHandlerSm::socketDirIs("");
  }
}

void StandInSocket::reasonIs(std::string reason) {
  callback_->reasonIs(std::move(reason));
}

}  // namespace VplsAgent
