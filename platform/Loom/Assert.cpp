#include "Loom/Assert.h"

#include <sys/uio.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "Trace/Flashlog.h"

namespace Loom {
namespace {

constexpr char kPrefix[] = "assertion \"";
constexpr char kMiddle[] = "\" failed in ";
constexpr char kColon[] = ": ";

iovec piece(char const* text) {
  char const* const t = text != nullptr ? text : "";
  return {const_cast<char*>(t), std::strlen(t)};
}

void recordInFlashlog(char const* condition, char const* unit, char const* signature) {
  // The whole line is one static fragment: a signature is far longer than a record keeps of a
  // text argument, and this format is registered at most once per failing process.
  auto text = [](char const* t) { return std::string_view(t != nullptr ? t : ""); };
  std::string line = std::string(kPrefix);
  line.append(text(condition)).append(kMiddle).append(text(unit)).append(kColon);
  line.append(text(signature));
  Trace::Format format{"Loom", 0, {{Trace::ArgKind::kFragment, std::move(line)}}};
  Trace::Flashlog::recordTexts(Trace::Flashlog::formatIs(format), {});
}

}  // namespace

void assertionFailed(char const* condition, char const* unit, char const* signature) noexcept {
  // stderr first, without allocating: the one thing that must get out whatever state the
  // process is in.
  iovec line[] = {piece(kPrefix), piece(condition), piece(kMiddle), piece(unit),
                  piece(kColon),  piece(signature), piece("\n")};
  [[maybe_unused]] auto const n = ::writev(STDERR_FILENO, line, std::size(line));
  try {
    recordInFlashlog(condition, unit, signature);
  } catch (...) {
    // Out of memory on the way down: stderr has the line; abort all the same.
  }
  Trace::Flashlog::flush();
  std::abort();
}

}  // namespace Loom
