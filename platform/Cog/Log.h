#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Cog/LogMessage.h"
#include "Trace/ArgTraits.h"
#include "Trace/FlashlogFormat.h"

namespace Cog {

// The handle through which code logs one message of its log-message table. Constructing it
// registers the message (see logMessages()). Handles are namespace-scope objects of the
// table's source file: log from them after static initialisation, not during it.
// Threading: log through one handle from any thread.
class LogHandle {
 public:
  // Throws std::invalid_argument when the identifier is empty or another message with the
  // same identifier but different texts is registered.
  explicit LogHandle(LogMessage const& message);
  LogHandle(LogHandle const&) = delete;
  LogHandle& operator=(LogHandle const&) = delete;

  LogMessage const& message() const noexcept { return message_; }
  // Number of "%s" slots in the format.
  std::size_t slotCount() const noexcept { return slotCount_; }
  // The message's Flashlog format: "<identifier>: " and the format, with a text argument
  // per slot; registered on first use.
  Trace::FormatId flashlogFormat() const;

 private:
  LogMessage message_;
  std::size_t slotCount_;
  mutable std::once_flag formatOnce_;
  mutable Trace::FormatId format_ = 0;
};

// Receives every logged message: the table entry, the argument texts and the formatted text
// (the format with each "%s" replaced by the next argument).
using LogSink = std::function<void(LogMessage const& message, std::vector<std::string> const& args,
                                   std::string const& formatted)>;

// Replaces the sink and returns the previous one; an empty function restores the default
// sink, which writes "<identifier>: <formatted>" as one line on stderr.
LogSink logSinkIs(LogSink sink);
void logSinkIsDefault();

// The format with each "%s" replaced by the next argument. A "%s" without an argument stays
// as it is, so a call with too few arguments is visible in the text; surplus arguments are
// not shown.
std::string formatLogText(std::string_view format, std::vector<std::string> const& args);

// All registered messages, by identifier, and one by its identifier.
std::vector<LogMessage> logMessages();
std::optional<LogMessage> logMessage(std::string_view identifier);

namespace detail {
void logTexts(LogHandle const& handle, std::vector<std::string> args);
}

// Logs one message: records it into the Flashlog (facility "Log", level = severity) and hands
// it to the sink. Each argument fills one "%s" with its text form (strings, strings with
// str() or c_str(), numbers, enums, interface ids, values with toString(); the rules of
// Trace::ArgTraits). Threading: safe from any thread; the sink runs on the caller's thread.
template <class... Args>
void log(LogHandle const& handle, Args const&... args) {
  detail::logTexts(handle, std::vector<std::string>{Trace::argText(args)...});
}

}  // namespace Cog
