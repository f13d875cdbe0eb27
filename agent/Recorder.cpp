#include "agent/Recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <system_error>

#include "host/Recording.h"

namespace VplsAgent {

Recorder::Recorder(std::filesystem::path path)
    : path_(std::move(path)),
      fd_(::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)) {
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
      std::cerr << "vpls-decap-agent: recording to " << path_.string()
                << " stopped: " << std::strerror(errno) << "\n";
      fd_.reset();
      return;
    }
    written += static_cast<std::size_t>(n);
  }
}

}  // namespace VplsAgent
