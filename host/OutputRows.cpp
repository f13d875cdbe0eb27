#include "host/OutputRows.h"

#include <algorithm>

#include "host/OutputTable.h"

namespace Host {
namespace {

constexpr std::string_view kLpoRequest = "LPO_REQUEST";

template <class Rows, class KeyAndFields>
std::vector<std::string> loadRows(AgentHarness& harness, Rows const& rows,
                                  KeyAndFields const& keyAndFields) {
  std::vector<std::string> problems;
  auto const load = [&](bool requests) {
    for (auto const& row : rows) {
      auto const& [key, fields] = keyAndFields(row);
      auto const* table = outputTableOf(key);
      if (table == nullptr || !table->loadedAtStart() ||
          (table->redisName() == kLpoRequest) != requests) {
        continue;
      }
      try {
        table->load(harness, key, fields);
      } catch (std::exception const& e) {
        problems.push_back(key + ": " + e.what());
      }
    }
  };
  load(true);
  load(false);
  harness.lifProfileOrientationAllocSm->takeSlotsBack();
  return problems;
}

}  // namespace

void forEachOutputRow(AgentHarness const& harness,
                      std::function<void(std::string&& key, Fields&& fields)> const& visit) {
  for (auto const* table : outputTables()) {
    table->forEachRow(harness, visit);
  }
}

std::vector<std::string> loadOutputRows(AgentHarness& harness, std::vector<StateRow> const& rows) {
  return loadRows(harness, rows, [](StateRow const& row) {
    return std::pair<std::string const&, Fields const&>(row.key, row.fields);
  });
}

std::vector<std::string> loadOutputRows(AgentHarness& harness,
                                        std::unordered_map<std::string, Fields> const& rows) {
  // In key order, as a recording lists them: a request whose answer is left out gets the
  // allocator's answer, which depends on the order of the requests loaded before it.
  std::vector<std::unordered_map<std::string, Fields>::value_type const*> sorted;
  sorted.reserve(rows.size());
  for (auto const& row : rows) {
    sorted.push_back(&row);
  }
  std::sort(sorted.begin(), sorted.end(),
            [](auto const* a, auto const* b) { return a->first < b->first; });
  return loadRows(harness, sorted, [](auto const* row) {
    return std::pair<std::string const&, Fields const&>(row->first, row->second);
  });
}

}  // namespace Host
