#include "Trace/LevelList.h"

#include "Trace/Facility.h"

namespace Trace {
namespace {

std::string_view trim(std::string_view s) {
  auto const first = s.find_first_not_of(" \t");
  if (first == std::string_view::npos) {
    return {};
  }
  return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

}  // namespace

LevelList parseLevelList(std::string_view text) {
  LevelList list;
  std::size_t start = 0;
  while (true) {
    auto const comma = text.find(',', start);
    std::string_view const entry =
        trim(text.substr(start, comma == std::string_view::npos ? comma : comma - start));
    if (!entry.empty()) {
      auto const slash = entry.find('/');
      std::string_view const name = entry.substr(0, slash);
      std::string_view const level =
          slash == std::string_view::npos ? std::string_view() : entry.substr(slash + 1);
      std::string quoted = "'";
      quoted.append(entry).push_back('\'');
      if (!isValidFacilityName(name)) {
        list.problems.push_back(quoted + ": facility name must be letters, digits, _ - . :");
      } else if (slash == std::string_view::npos) {
        list.settings.push_back({std::string(name), kMaxLevel});
      } else if (level.size() != 1 || level[0] < '0' || level[0] > '9') {
        list.problems.push_back(quoted + ": level must be one digit 0..9");
      } else {
        list.settings.push_back({std::string(name), level[0] - '0'});
      }
    }
    if (comma == std::string_view::npos) {
      break;
    }
    start = comma + 1;
  }
  return list;
}

}  // namespace Trace
