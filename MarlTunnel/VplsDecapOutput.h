#pragma once

#include <map>
#include <utility>
#include <vector>

#include "Bridging/VlanIdOrNone.h"
#include "Loom/String.h"
#include "MarlTunnel/VplsDecapEntry.h"

namespace Hardware::MarlTunnel {

// The show command's result: per pseudowire name, per VLAN (none first), its decap entry.
using VplsDecapEntryMap = std::map<Loom::String, std::map<Bridging::VlanIdOrNone, VplsDecapEntry>>;

// The same result as the command builds it for its answer: the pseudowires in ascending name
// order, each with its entries in ascending VLAN order, one per VLAN. The names belong to
// whoever made the list.
struct PseudowireDecapEntries {
  Loom::String const* name;
  std::vector<std::pair<Bridging::VlanIdOrNone, VplsDecapEntry>> vlans;
};
using VplsDecapEntryList = std::vector<PseudowireDecapEntries>;

// The map of a list.
VplsDecapEntryMap toMap(VplsDecapEntryList const& entries);

// The answer text of the show command: one line in the syntax of a Python dictionary literal,
// which the command-line front end reads as a dictionary. The layout is that front end's
// interface and is produced byte for byte; a list gives the same text as its map. Keeps no
// state.
Loom::String printVplsDecapEntries(VplsDecapEntryMap const& entries);
Loom::String printVplsDecapEntries(VplsDecapEntryList const& entries);

}  // namespace Hardware::MarlTunnel
