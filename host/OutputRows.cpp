#include "host/OutputRows.h"

#include <algorithm>

#include "host/OutputTable.h"

namespace Host {
namespace {

constexpr std::string_view kLpoRequest = "LPO_REQUEST";

std::vector<std::string> loadRows(AgentHarness& harness, RowSource const& rows) {
  std::vector<std::string> problems;
  auto const load = [&](bool requests) {
    rows(
        [&](std::string_view key, Fields const& fields) {
          try {
            outputTableOf(key)->load(harness, key, fields);
          } catch (std::exception const& e) {
            std::string problem(key);
            problems.push_back(problem.append(": ").append(e.what()));
          }
        },
        [requests](std::string_view name) {
          auto const* table = outputTableOf(name);
          return table != nullptr && table->loadedAtStart() &&
                 (table->redisName() == kLpoRequest) == requests;
        });
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
  return loadRows(harness, [&](RowVisit const& visit, TableWanted const& wanted) {
    for (auto const& row : rows) {
      if (wanted(std::string_view(row.key).substr(0, row.key.find('|')))) {
        visit(row.key, row.fields);
      }
    }
  });
}

std::vector<std::string> loadOutputRows(AgentHarness& harness, RowSource const& rows) {
  return loadRows(harness, rows);
}

}  // namespace Host
