#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Loom/Ptr.h"
#include "Orb/AgentSocketHandlerSm.h"

namespace VplsAgent {

class StandInShowCallback;

// The agent's command socket while it has no running library to answer from: standing by for
// the lease, or blocked by a start-up that the library stopped. It serves the socket the
// library's wrapper would serve, at the same path, and answers its show command with one error
// line that says why ("error: <reason>").
//
// Invariants: serves from construction to destruction (destroy it before the wrapper opens
// the socket); the socket directory is the agent's while it lives. Threading: the agent's
// scheduler thread, which must be the root scheduler.
class StandInSocket {
 public:
  // std::system_error when the socket cannot be opened.
  StandInSocket(std::optional<std::string> const& socketDir, std::string reason);
  ~StandInSocket();
  StandInSocket(StandInSocket const&) = delete;
  StandInSocket& operator=(StandInSocket const&) = delete;

  void reasonIs(std::string reason);

 private:
  bool const ownsSocketDir_;
  Loom::Ptr<StandInShowCallback> callback_;
  Loom::Ptr<Orb::AgentSocketHandlerSm> handler_;
};

}  // namespace VplsAgent
