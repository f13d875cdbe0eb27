#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dblink/KeyLayout.h"
#include "host/InputChange.h"

namespace DbLink {

// What an input key's hash says, as input changes: the agent applies them to its input entities
// exactly as the runner applies a scenario's, and records them in the same form.
struct InputDecoding {
  // The one change of the element the key names: a keyed element's set (the hash is there) or
  // its del (absent, or bad input); an attribute's set ("VPLS_DECAP_CONFIG|restartDone"), to
  // false when the key is absent or bad input. None for a key that does not parse.
  std::vector<Host::InputChange> changes;
  // Empty for good input; else one line naming the key, the field and what is wrong with it.
  // Bad input counts as absent. A key that does not parse names no element and gives no
  // change.
  std::string problem;
};

// Decodes one input key and its hash as read (null: the key does not exist).
InputDecoding decodeInput(std::string_view key, Fields const* fields);
// The same for a key that holds something other than a hash: bad input, treated as absent.
InputDecoding decodeWrongType(std::string_view key, std::string_view type);

// The key and the hash that stand for a set in the state database (every field written,
// defaults included, so that the hash replaces what was there); the key alone for a del.
std::pair<std::string, Fields> inputRow(Host::InputChange const& change);

}  // namespace DbLink
