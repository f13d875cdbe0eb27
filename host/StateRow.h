#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Host {

// A hash as the state database holds it: field names and their texts, in order.
using Fields = std::vector<std::pair<std::string, std::string>>;

// One output element as the state database holds it: its key ("MPLS_DECAP_CONFIG|1001|10|0")
// and its hash.
struct StateRow {
  std::string key;
  Fields fields;
};

// What to write of one element: its key and its current hash, none when it is gone.
struct RowUpdate {
  std::string key;
  std::optional<Fields> fields;
};

}  // namespace Host
