#include "sim/RunFlashlog.h"

#include <cstdlib>
#include <system_error>

#include "Trace/Flashlog.h"
#include "host/PrivateDir.h"

namespace Sim {
namespace {

constexpr char kPrivateDirPrefix[] = "vpls-decap-sim-flashlog";
constexpr char kFileName[] = "vpls-decap-sim.flashlog";

bool flashlogDirSet() {
  char const* const dir = std::getenv(Trace::Flashlog::kDirEnv);
  return dir != nullptr && *dir != '\0';
}

}  // namespace

RunFlashlog::RunFlashlog(std::optional<std::string> const& flashlogOption) {
  if (flashlogOption || flashlogDirSet()) {
    return;
  }
  try {
    privateDir_ = Host::makePrivateDir(kPrivateDirPrefix);
  } catch (std::system_error const&) {
    Trace::Flashlog::openInMemory();
    return;
  }
  Trace::Flashlog::open(*privateDir_ / kFileName);
}

RunFlashlog::~RunFlashlog() {
  if (privateDir_) {
    std::error_code ec;
    std::filesystem::remove_all(*privateDir_, ec);
  }
}

std::string RunFlashlog::keptOnAbortMessage(std::string const& program) const {
  if (!privateDir_) {
    return {};
  }
  std::string message = program;
  message.append(": the flashlog of this run is kept: ")
      .append((*privateDir_ / kFileName).string())
      .append("\n");
  return message;
}

}  // namespace Sim
