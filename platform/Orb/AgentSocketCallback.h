#pragma once

#include <cstdint>
#include <string_view>

#include "Loom/Node.h"
#include "Loom/String.h"
#include "Loom/TypeData.h"

namespace Orb {

// One command of an agent's command socket (Orb::AgentSocketHandlerSm). A derived class
// answers the command: the handler calls handleCommand() with the request's argument text and
// a descriptor to write the answer to, then sends what was written to the client.
//
// Invariants: the handler name and the command are fixed at construction; the command is one
// word (non-empty, no blanks or control characters). Runs on the agent's scheduler thread;
// takes no locks.
class AgentSocketCallback : public Loom::Node {
 public:
  static constexpr std::string_view typeName = "Orb::AgentSocketCallback";

  // `handlerName`: the name of the socket handler this command belongs to; `command`: the
  // first word of the requests it answers. std::invalid_argument when the command is not one
  // word.
  AgentSocketCallback(Loom::String handlerName, Loom::String command);

  static Loom::TypeData const& type();
  Loom::TypeData const& typeData() const override { return type(); }

  Loom::String const& handlerName() const noexcept { return handlerName_; }
  Loom::String const& command() const noexcept { return command_; }

  // Answers one request: writes the whole answer to `fd` (write(2), dprintf(3), ...) and
  // returns. `fd` is an in-memory buffer, never the client's connection, so writing to it
  // never blocks; an answer must stay below the handler's answer limit. The callback must not
  // close `fd`. An exception is reported to the client after what was written.
  virtual void handleCommand(std::uint32_t fd, Loom::String const& args) = 0;

 private:
  Loom::String const handlerName_;
  Loom::String const command_;
};

// Writes all of `text` to `fd`, retrying interrupted and partial writes; a failed write ends it
// (an answer's buffer refuses writes beyond the answer limit). What callbacks and the handler
// write answers with.
void writeAll(int fd, std::string_view text) noexcept;

}  // namespace Orb
