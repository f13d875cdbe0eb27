#include "bench/scale/SizeBenchmark.h"

#include <limits>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "bench/scale/CaseChild.h"
#include "bench/scale/SelfProcess.h"

namespace Bench {
namespace {

constexpr char kSkipped[] = "skipped";
// The program part reports the floor of the start-up walk on a line of its own.
constexpr char kStartupFloor[] = "startup-floor";

}  // namespace

SizeBenchmark::SizeBenchmark(PseudowireMix const& mix, int repetitions, Cases cases)
    : mix_(mix), cases_(cases), repetitionsLeft_(repetitions < 1 ? 1 : repetitions) {
  for (char const* name : {"program", "startup", "teardown", "show"}) {
    if (cases_ == Cases::showOnly && std::string_view(name) != "show") {
      continue;
    }
    ScaleCase c;
    c.name = name;
    c.pseudowires = mix_.pseudowires();
    c.vlans = mix_.vlans();
    c.entries = mix_.entries();
    c.seconds = std::numeric_limits<double>::infinity();
    c.floorSeconds = std::numeric_limits<double>::infinity();
    results_.push_back(std::move(c));
  }
}

void SizeBenchmark::runRepetition() {
  if (cases_ == Cases::showOnly) {
    runPart("show");
  } else {
    runPart("program");
    runPart("startup");
  }
  --repetitionsLeft_;
}

std::vector<ScaleCase> SizeBenchmark::results() const {
  auto results = results_;
  std::erase_if(results, [](ScaleCase const& c) {
    return c.seconds == std::numeric_limits<double>::infinity();
  });
  return results;
}

void SizeBenchmark::runPart(char const* part) {
  std::istringstream lines(runSelf(
      {kCaseChildOption, part, std::to_string(mix_.pseudowires()), std::to_string(mix_.vlans())}));
  for (std::string line; std::getline(lines, line);) {
    keep(line);
  }
}

ScaleCase& SizeBenchmark::result(std::string const& name) {
  for (auto& c : results_) {
    if (c.name == name) {
      return c;
    }
  }
  throw std::runtime_error("a case child reported an unknown case '" + name + "'");
}

void SizeBenchmark::keep(std::string const& line) {
  std::istringstream fields(line);
  std::string name;
  fields >> name;
  if (name == kSkipped) {
    std::string skippedCase;
    fields >> skippedCase >> std::ws;
    std::getline(fields, showSkipped_.emplace());
    return;
  }
  Timing timing;
  Timing floor;
  Timing hashFloor;
  std::uint64_t bytes = 0;
  if (!(fields >> timing.seconds >> timing.wallSeconds >> floor.seconds >> hashFloor.seconds >>
        bytes)) {
    throw std::runtime_error("a case child printed '" + line + "'");
  }
  auto& c = result(name == kStartupFloor ? "startup" : name);
  if (name != kStartupFloor && timing.seconds < c.seconds) {
    c.seconds = timing.seconds;
    c.wallSeconds = timing.wallSeconds;
  }
  if (name != "startup" && floor.seconds < c.floorSeconds) {
    c.floorSeconds = floor.seconds;
  }
  if (name != "startup" && hashFloor.seconds > 0 &&
      (!c.hashFloorSeconds || hashFloor.seconds < *c.hashFloorSeconds)) {
    c.hashFloorSeconds = hashFloor.seconds;
  }
  if (bytes != 0) {
    c.answerBytes = bytes;
  }
}

}  // namespace Bench
