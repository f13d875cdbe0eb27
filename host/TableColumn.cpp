#include "host/TableColumn.h"

#include <charconv>

#include "Loom/RangeError.h"

namespace Host {

std::string cellText(Cell const& cell) {
  if (auto const* number = std::get_if<std::uint64_t>(&cell)) {
    return std::to_string(*number);
  }
  if (auto const* flag = std::get_if<bool>(&cell)) {
    return *flag ? "true" : "false";
  }
  return std::get<std::string>(cell);
}

nlohmann::ordered_json cellJson(Cell const& cell) {
  if (auto const* number = std::get_if<std::uint64_t>(&cell)) {
    return *number;
  }
  if (auto const* flag = std::get_if<bool>(&cell)) {
    return *flag;
  }
  return std::get<std::string>(cell);
}

Cell readCell(ColumnKind kind, std::uint64_t max, std::string_view text, std::string const& where) {
  switch (kind) {
    case ColumnKind::number: {
      std::uint64_t value = 0;
      bool const digits = !text.empty() && text.front() >= '0' && text.front() <= '9';
      auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
      if (!digits || error != std::errc() || end != text.data() + text.size() || value > max) {
        throw BadRow(where + ": \"" + std::string(text) + "\" is not a number up to " +
                     std::to_string(max));
      }
      return value;
    }
    case ColumnKind::boolean:
      if (text == "true" || text == "false") {
        return text == "true";
      }
      throw BadRow(where + ": \"" + std::string(text) + "\" is not true or false");
    case ColumnKind::text:
      if (text.size() > max) {
        throw BadRow(where + ": longer than " + std::to_string(max));
      }
      return std::string(text);
    case ColumnKind::pw:
      try {
        if (!text.empty()) {
          return Netcore::IntfId(text).toString();
        }
      } catch (Loom::RangeError const&) {
        // reported below
      }
      throw BadRow("\"" + std::string(text) + "\" is not an interface name");
  }
  throw BadRow(where + ": unknown column kind");
}

}  // namespace Host
