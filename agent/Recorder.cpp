#include "agent/Recorder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>
#include <system_error>

#include "host/Recording.h"

namespace VplsAgent {
namespace {

// Renames `from` to `to` unless `to` exists; false when it does.
bool renameUnlessTaken(std::string const& from, std::string const& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
    return true;
  }
  if (errno == EINVAL || errno == ENOSYS) {
    // A file system without the exclusive rename: look, then rename.
    struct stat taken {};
    if (::lstat(to.c_str(), &taken) == 0) {
      return false;
    }
    if (::rename(from.c_str(), to.c_str()) == 0) {
      return true;
    }
  }
  if (errno == EEXIST) {
    return false;
  }
  throw std::system_error(errno, std::generic_category(),
                          "cannot move the earlier recording " + from + " to " + to);
}

// Moves a recording that is there and not empty to "<path>.<UTC time of its last change>",
// with ".1", ".2", ... when that name is taken; returns the new name.
std::optional<std::string> moveAside(std::filesystem::path const& path) {
  struct stat found {};
  if (::stat(path.c_str(), &found) != 0 || !S_ISREG(found.st_mode) || found.st_size == 0) {
    return std::nullopt;
  }
  std::tm utc{};
  ::gmtime_r(&found.st_mtim.tv_sec, &utc);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &utc);
  std::string const base = path.string() + "." + stamp;
  for (unsigned n = 0;; ++n) {
    std::string target = base;
    if (n > 0) {
      target.append(".").append(std::to_string(n));
    }
    if (renameUnlessTaken(path.string(), target)) {
      return target;
    }
  }
}

}  // namespace

Recorder::Recorder(std::filesystem::path path, StderrLog log)
    : path_(std::move(path)), log_(std::move(log)) {
  if (auto const moved = moveAside(path_)) {
    log_.say(LogPriority::notice,
             "the earlier recording " + path_.string() + " is kept as " + *moved);
  }
  fd_.reset(::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!fd_) {
    throw std::system_error(errno, std::generic_category(),
                            "cannot create the recording " + path_.string());
  }
}

void Recorder::start(Host::StartState const& found) {
  writeLine(Host::recordingHeaderLine(found));
}

void Recorder::record(Host::InputChange const& change) {
  writeLine(Host::recordingChangeLine(change, inBatch_));
  inBatch_ = true;
}

void Recorder::writeLine(std::string const& line) {
  if (!fd_) {
    return;
  }
  std::size_t written = 0;
  while (written < line.size()) {
    auto const n = ::write(fd_.get(), line.data() + written, line.size() - written);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      log_.say(LogPriority::warning,
               "recording to " + path_.string() + " stopped: " + std::strerror(errno));
      fd_.reset();
      return;
    }
    written += static_cast<std::size_t>(n);
  }
}

}  // namespace VplsAgent
