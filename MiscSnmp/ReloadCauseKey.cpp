#include "MiscSnmp/ReloadCauseKey.h"

#include "Qel/Format.h"
#include "Qel/Strep.h"

namespace MiscSnmp {

namespace {

Qel::String fieldText(U32 value) {
  return Qel::valueToStrep(static_cast<unsigned long long>(value));
}

}  // namespace

ReloadCauseKey::ReloadCauseKey(Qel::String::IteratorConst& pos,
                               const Qel::String::IteratorConst& end) {
  Qel::needString(pos, end, "Value('MiscSnmp::ReloadCauseKey', ** {");
  Qel::needString(pos, end, "'unitIndex': ");
  unitIndex_ = Qel::deserializeAttr<U32>(pos, end, "unitIndex");
  Qel::needString(pos, end, ", 'instanceIndex': ");
  instanceIndex_ = Qel::deserializeAttr<U32>(pos, end, "instanceIndex");
  Qel::needString(pos, end, ", 'causeIndex': ");
  causeIndex_ = Qel::deserializeAttr<U32>(pos, end, "causeIndex");
  Qel::needString(pos, end, "})");
}

Qel::String valueToStrep(const ReloadCauseKey& key) {
  return Qel::format(
      "Value('MiscSnmp::ReloadCauseKey', ** {'unitIndex': %s, 'instanceIndex': %s, 'causeIndex': "
      "%s})",
      fieldText(key.unitIndex()), fieldText(key.instanceIndex()), fieldText(key.causeIndex()));
}

std::ostream& operator<<(std::ostream& out, const ReloadCauseKey& key) {
  return out << valueToStrep(key);
}

}  // namespace MiscSnmp
