// Fuzzes the show command's argument text: the input is the argument text of a "vplsDecap"
// request, run through the agent socket handler as a connection runs it (answerText), against
// the agent of ShowAgent.
//
// Property: the answer is the table of the programmed entries that pass the instance, group
// and interface filters of the first three words, as ShowAgent computes it.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "FuzzCheck.h"
#include "MarlTunnel/VplsSmWrapper.h"
#include "fuzz/ShowAgent.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const args(reinterpret_cast<char const*>(data), size);
  auto const& agent = Fuzz::ShowAgent::instance();
  auto const answer =
      agent.socket().answerText(Hardware::MarlTunnel::VplsSmWrapper::kShowCommand, args);
  Fuzz::require(answer == agent.expectedShow(args),
                "the show command's answer does not follow its filters: " + answer);
  return 0;
}
