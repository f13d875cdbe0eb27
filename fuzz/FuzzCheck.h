#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace Fuzz {

// A property of a fuzz target that does not hold: printed, then the process aborts, so that
// libFuzzer keeps the input as a crash.
[[noreturn]] inline void fail(std::string_view what) {
  std::fprintf(stderr, "\nfuzz property violated: %.*s\n", static_cast<int>(what.size()),
               what.data());
  std::abort();
}

inline void require(bool holds, std::string_view what) {
  if (!holds) {
    fail(what);
  }
}

// One line: no newline and not empty, as error messages and answers' error lines must be.
inline bool isOneLine(std::string_view text) {
  return !text.empty() && text.find('\n') == std::string_view::npos;
}

}  // namespace Fuzz
