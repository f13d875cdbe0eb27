#include "Cog/Log.h"

#include <unistd.h>

#include <map>
#include <memory>
#include <stdexcept>

#include "Loom/Immortal.h"
#include "Trace/Flashlog.h"

namespace Cog {
namespace {

constexpr std::string_view kSlot = "%s";

std::size_t countSlots(std::string_view format) {
  std::size_t count = 0;
  for (auto at = format.find(kSlot); at != std::string_view::npos;
       at = format.find(kSlot, at + kSlot.size())) {
    ++count;
  }
  return count;
}

struct Registry {
  std::mutex mutex;
  std::map<std::string, LogMessage, std::less<>> messages;
};

Registry& registry() {
  static Loom::Immortal<Registry> r;
  return r.get();
}

// The installed sink; null means the default one.
struct SinkSlot {
  std::mutex mutex;
  std::shared_ptr<LogSink const> sink;
};

SinkSlot& sinkSlot() {
  static Loom::Immortal<SinkSlot> s;
  return s.get();
}

void defaultSink(LogMessage const& message, std::string const& formatted) {
  std::string line;
  line.reserve(message.identifier.size() + formatted.size() + 3);
  line.append(message.identifier).append(": ").append(formatted).push_back('\n');
  [[maybe_unused]] auto const n = ::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace

LogHandle::LogHandle(LogMessage const& message)
    : message_(message), slotCount_(countSlots(message.format)) {
  if (message.identifier.empty()) {
    throw std::invalid_argument("log message without an identifier");
  }
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  auto const [it, inserted] = r.messages.emplace(std::string(message.identifier), message);
  if (!inserted && it->second != message) {
    throw std::invalid_argument("log message " + std::string(message.identifier) +
                                " is registered twice with different texts");
  }
}

Trace::FormatId LogHandle::flashlogFormat() const {
  std::call_once(formatOnce_, [this] {
    Trace::Format format{"Log", message_.severity, {}};
    std::string fragment = std::string(message_.identifier) + ": ";
    std::string_view rest = message_.format;
    for (auto at = rest.find(kSlot); at != std::string_view::npos; at = rest.find(kSlot)) {
      fragment += rest.substr(0, at);
      if (!fragment.empty()) {
        format.elements.push_back({Trace::ArgKind::kFragment, std::move(fragment)});
        fragment.clear();
      }
      format.elements.push_back({Trace::ArgKind::kText, {}});
      rest.remove_prefix(at + kSlot.size());
    }
    fragment += rest;
    if (!fragment.empty()) {
      format.elements.push_back({Trace::ArgKind::kFragment, std::move(fragment)});
    }
    format_ = Trace::Flashlog::formatIs(format);
  });
  return format_;
}

LogSink logSinkIs(LogSink sink) {
  auto next = sink ? std::make_shared<LogSink const>(std::move(sink)) : nullptr;
  SinkSlot& slot = sinkSlot();
  std::lock_guard lock(slot.mutex);
  std::swap(slot.sink, next);
  return next ? *next : LogSink();
}

void logSinkIsDefault() {
  logSinkIs(LogSink());
}

std::string formatLogText(std::string_view format, std::vector<std::string> const& args) {
  std::string text;
  text.reserve(format.size() + 32);
  std::size_t next = 0;
  for (auto at = format.find(kSlot); at != std::string_view::npos; at = format.find(kSlot)) {
    text += format.substr(0, at);
    text += next < args.size() ? std::string_view(args[next++]) : kSlot;
    format.remove_prefix(at + kSlot.size());
  }
  text += format;
  return text;
}

std::vector<LogMessage> logMessages() {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  std::vector<LogMessage> all;
  for (auto const& [identifier, message] : r.messages) {
    all.push_back(message);
  }
  return all;
}

std::optional<LogMessage> logMessage(std::string_view identifier) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  auto const it = r.messages.find(identifier);
  return it == r.messages.end() ? std::nullopt : std::optional<LogMessage>(it->second);
}

namespace detail {

void logTexts(LogHandle const& handle, std::vector<std::string> args) {
  LogMessage const& message = handle.message();
  std::string const formatted = formatLogText(message.format, args);

  std::vector<std::string_view> slots(handle.slotCount(), kSlot);
  for (std::size_t i = 0; i < slots.size() && i < args.size(); ++i) {
    slots[i] = args[i];
  }
  Trace::Flashlog::recordTexts(handle.flashlogFormat(), slots);

  std::shared_ptr<LogSink const> sink;
  {
    SinkSlot& slot = sinkSlot();
    std::lock_guard lock(slot.mutex);
    sink = slot.sink;
  }
  if (sink) {
    (*sink)(message, args, formatted);
  } else {
    defaultSink(message, formatted);
  }
}

}  // namespace detail

}  // namespace Cog
