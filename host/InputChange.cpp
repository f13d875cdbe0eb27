#include "host/InputChange.h"

#include "host/InputTables.h"

namespace Host {

std::string_view tableName(InputTable table) {
  return inputTable(table).name;
}

bool isAttribute(InputTable table) {
  return inputTable(table).keyColumns.empty();
}

std::string describe(InputChange const& change) {
  auto const& table = inputTable(change.table);
  bool const set = change.kind == ChangeKind::set;
  std::string text = std::string(set ? "set " : "del ") + std::string(table.name);
  for (auto const& column : table.keyColumns) {
    text += ' ';
    if (column.name != "pw") {
      text.append(column.name).append(" ");
    }
    text += columnText(column, change);
  }
  if (set) {
    text += " = " + table.describeValue(change);
  }
  return text;
}

}  // namespace Host
