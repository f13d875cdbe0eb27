#pragma once

#include <map>

#include "Bridging/VlanIdOrNone.h"
#include "Loom/String.h"
#include "MarlTunnel/VplsDecapEntry.h"

namespace Hardware::MarlTunnel {

// The show command's result: per pseudowire name, per VLAN (none first), its decap entry.
using VplsDecapEntryMap = std::map<Loom::String, std::map<Bridging::VlanIdOrNone, VplsDecapEntry>>;

// The answer text of the show command: one line in the syntax of a Python dictionary literal,
// which the command-line front end reads as a dictionary. The layout is that front end's
// interface and is produced byte for byte. Keeps no state.
Loom::String printVplsDecapEntries(VplsDecapEntryMap const& entries);

}  // namespace Hardware::MarlTunnel
