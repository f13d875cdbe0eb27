#pragma once

// LOOM_ASSERT(cond, unit, signature): checks an invariant the code relies on. When cond is
// false, writes one line to stderr,
//   assertion "<cond as written>" failed in <unit>: <signature>
// records the same line into the Flashlog, flushes the Flashlog and aborts. unit names the
// source unit ("MarlTunnel/MarlVplsPwIntfDecapSm") and signature the enclosing function's
// full signature, both string literals written out in the code: the text stays the same
// whatever compiler built the agent. Always on, in every build type; cond is evaluated once.
#define LOOM_ASSERT(cond, unit, signature)                 \
  do {                                                     \
    if (!(cond)) [[unlikely]] {                            \
      ::Loom::assertionFailed(#cond, (unit), (signature)); \
    }                                                      \
  } while (false)

namespace Loom {

// The failure path of LOOM_ASSERT. Does not return.
[[noreturn]] void assertionFailed(char const* condition, char const* unit,
                                  char const* signature) noexcept;

}  // namespace Loom
