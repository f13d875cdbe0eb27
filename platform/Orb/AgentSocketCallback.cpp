#include "Orb/AgentSocketCallback.h"

#include <unistd.h>

#include <cerrno>
#include <stdexcept>

namespace Orb {

AgentSocketCallback::AgentSocketCallback(Loom::String handlerName, Loom::String command)
    : handlerName_(std::move(handlerName)), command_(std::move(command)) {
  if (command_.empty()) {
    throw std::invalid_argument("Orb::AgentSocketCallback: empty command name");
  }
  for (char const c : command_.view()) {
    auto const byte = static_cast<unsigned char>(c);
    if (byte <= ' ' || byte == 0x7f) {
      throw std::invalid_argument("Orb::AgentSocketCallback: command name '" + command_.str() +
                                  "' is not one word");
    }
  }
}

Loom::TypeData const& AgentSocketCallback::type() {
  // Abstract: a command's callback is created by its own derived type, never by name.
  static Loom::TypeData const data(typeName,
                                   {
                                       {"handlerName", Loom::AttributeKind::scalar, "Loom::String"},
                                       {"command", Loom::AttributeKind::scalar, "Loom::String"},
                                   },
                                   {}, false);
  return data;
}

namespace {
Loom::TypeRegistration const registration(AgentSocketCallback::type());
}

void writeAll(int fd, std::string_view text) noexcept {
  while (!text.empty()) {
    auto const n = ::write(fd, text.data(), text.size());
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return;
    }
    text.remove_prefix(static_cast<std::size_t>(n));
  }
}

}  // namespace Orb
