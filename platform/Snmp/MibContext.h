#pragma once

#include <vector>

#include "Qel/String.h"

namespace Snmp {

// A MIB module that serves an SNMP context, or has refused to.
struct MibContext {
  Qel::String context;
  Qel::String module;

  friend bool operator==(const MibContext&, const MibContext&) = default;
};

// Records that `module` was initialised for `context`; a pair is recorded once.
void registerMibContext(const Qel::String& context, const Qel::String& module);
// Takes the record back; a pair that was never recorded is ignored.
void unregisterMibContext(const Qel::String& context, const Qel::String& module);

// What stands recorded, oldest first: the pairs that the agent unregisters before it unloads.
std::vector<MibContext> mibContexts();

}  // namespace Snmp
