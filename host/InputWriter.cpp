#include "host/InputWriter.h"

#include "host/InputTables.h"

namespace Host {

void applyInput(AgentHarness& harness, InputChange const& change) {
  inputTable(change.table).apply(harness, change);
}

bool inputHolds(AgentHarness const& harness, InputChange const& change) {
  return inputTable(change.table).holds(harness, change);
}

std::vector<InputChange> inputElements(AgentHarness const& harness) {
  std::vector<InputChange> changes;
  for (auto const& table : inputTables()) {
    table.forEach(harness, [&](InputChange&& change) { changes.push_back(std::move(change)); });
  }
  return changes;
}

}  // namespace Host
