#include "agent/StderrLog.h"

#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>

namespace VplsAgent {
namespace {

char const* prefixOf(LogPriority priority) {
  switch (priority) {
    case LogPriority::error:
      return SD_ERR;
    case LogPriority::warning:
      return SD_WARNING;
    case LogPriority::notice:
      return SD_NOTICE;
    case LogPriority::info:
      break;
  }
  return SD_INFO;
}

// Whether `stream` ("device:inode", both decimal) names the file that stderr is.
bool isStderr(std::string_view stream) {
  auto const colon = stream.find(':');
  if (colon == std::string_view::npos) {
    return false;
  }
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  auto const parse = [](std::string_view text, std::uint64_t& to) {
    auto const [end, ec] = std::from_chars(text.data(), text.data() + text.size(), to);
    return ec == std::errc() && end == text.data() + text.size() && !text.empty();
  };
  struct stat status {};
  return parse(stream.substr(0, colon), device) && parse(stream.substr(colon + 1), inode) &&
         ::fstat(STDERR_FILENO, &status) == 0 && status.st_dev == device && status.st_ino == inode;
}

void writeAll(std::string_view out) {
  while (!out.empty()) {
    auto const n = ::write(STDERR_FILENO, out.data(), out.size());
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return;  // stderr is gone: nowhere left to say it
    }
    out.remove_prefix(static_cast<std::size_t>(n));
  }
}

}  // namespace

LogPriority priorityOfSeverity(int severity) {
  if (severity <= 3) {
    return LogPriority::error;
  }
  if (severity == 4) {
    return LogPriority::warning;
  }
  return severity == 5 ? LogPriority::notice : LogPriority::info;
}

StderrLog StderrLog::forStderr(std::string program) {
  char const* const stream = std::getenv("JOURNAL_STREAM");
  return StderrLog(std::move(program), stream != nullptr && isStderr(stream));
}

StderrLog::StderrLog(std::string program, bool journal)
    : program_(std::move(program)), journal_(journal) {}

void StderrLog::say(LogPriority priority, std::string_view line) const {
  if (journal_) {
    write(priority, line);
    return;
  }
  std::string out = program_;
  out.append(": ").append(line);
  write(priority, out);
}

void StderrLog::write(LogPriority priority, std::string_view text) const {
  std::string out;
  out.reserve(text.size() + 8);
  while (!text.empty()) {
    auto const end = text.find('\n');
    auto const line = text.substr(0, end);
    if (journal_) {
      out.append(prefixOf(priority));
    }
    out.append(line).push_back('\n');
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  writeAll(out);
}

}  // namespace VplsAgent
