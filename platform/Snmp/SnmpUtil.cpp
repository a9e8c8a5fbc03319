#include "Snmp/SnmpUtil.h"

namespace SnmpUtil {

namespace {

// Leaked: at the end of the process the code of the entities may have been unloaded already.
Qel::Ptr<Qel::Dir>& root() {
  static auto* const held = new Qel::Ptr<Qel::Dir>;
  return *held;
}

}  // namespace

void rootIs(const Qel::Ptr<Qel::Dir>& newRoot) { root() = newRoot; }

Qel::Ptr<Qel::Entity> getEntityRelative(const char* path) {
  if (!root()) return nullptr;
  return root()->entity(path);
}

}  // namespace SnmpUtil
