#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>

#include <nlohmann/json.hpp>

#include "Netcore/IntfId.h"

namespace Host {

// What a column holds, which decides its encodings: a number (decimal text in the state
// database, a JSON number), a boolean ("true"/"false", a JSON boolean), a name (its text) or an
// interface name ("Pseudowire<N>", a JSON string).
enum class ColumnKind : std::uint8_t { number, boolean, text, pw };

// One column's value, whatever the encoding: numbers and booleans as such, names and interface
// names as their text.
using Cell = std::variant<std::uint64_t, bool, std::string>;

// One column of a table's key or value: its name (the same in the state database and in the
// runner's JSON state), what it holds, its bound (the largest number, or the longest name, a
// row read back may hold) and how to take it from the record T.
template <class T>
struct Column {
  std::string_view name;
  ColumnKind kind;
  std::uint64_t max;
  Cell (*get)(T const&);
};

inline constexpr std::uint64_t kMaxU8 = 0xff;
inline constexpr std::uint64_t kMaxU16 = 0xffff;
inline constexpr std::uint64_t kMaxU32 = 0xffffffff;
inline constexpr std::uint64_t kMaxU64 = ~std::uint64_t{0};
inline constexpr std::uint64_t kMaxVlan = 4094;
inline constexpr std::uint64_t kAnyLength = ~std::uint64_t{0};

// A cell as the state database writes it.
std::string cellText(Cell const& cell);
// A cell as the runner's JSON state writes it.
nlohmann::ordered_json cellJson(Cell const& cell);

// A row read back that does not decode; what() names the key segment or field and the problem.
class BadRow : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads one cell from its text in the state database, within the column's bound; `where` names
// it in the error ("key segment 2", "field hwFecId").
Cell readCell(ColumnKind kind, std::uint64_t max, std::string_view text, std::string const& where);

// The typed reads of cells that decoded (readCell checked them).
inline std::uint64_t numberOf(Cell const& cell) {
  return std::get<std::uint64_t>(cell);
}
inline bool boolOf(Cell const& cell) {
  return std::get<bool>(cell);
}
inline std::string const& textOf(Cell const& cell) {
  return std::get<std::string>(cell);
}
inline Netcore::IntfId pwOf(Cell const& cell) {
  return Netcore::IntfId(textOf(cell));
}

}  // namespace Host
