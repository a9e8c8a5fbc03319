#include "Snmp/MibContext.h"

#include <algorithm>

namespace Snmp {

namespace {

std::vector<MibContext>& records() {
  static auto* const all = new std::vector<MibContext>;
  return *all;
}

}  // namespace

void registerMibContext(const Qel::String& context, const Qel::String& module) {
  const MibContext record{context, module};
  auto& all = records();
  if (std::find(all.begin(), all.end(), record) == all.end()) all.push_back(record);
}

void unregisterMibContext(const Qel::String& context, const Qel::String& module) {
  std::erase(records(), MibContext{context, module});
}

std::vector<MibContext> mibContexts() { return records(); }

}  // namespace Snmp
