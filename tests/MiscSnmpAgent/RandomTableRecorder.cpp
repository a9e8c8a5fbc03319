#include "MiscSnmpAgent/RandomTableRecorder.h"

#include <utility>

namespace MiscSnmp::Agent {

expected::Key plainKey(const ReloadCauseKey& key) {
  return {key.unitIndex(), key.instanceIndex(), key.causeIndex()};
}

RandomTableRecorder::RandomTableRecorder(const Qel::Ptr<GeneralMib>& mib)
    : GeneralMib::NotifieeConst(Qel::NotifierReference::plain) {
  notifierIs(mib);
  isRegisteredNotifieeIs(true);
  hasNotificationActiveIs(true);
}

void RandomTableRecorder::onReloadCauseTable(const ReloadCauseKey& key) {
  const expected::Key plain = plainKey(key);
  const auto present = generalMib()->reloadCauseTable()[key];
  const auto known = rows_.find(plain);
  if (present == (known == rows_.end() ? nullptr : known->second)) {
    if (problem_.empty())
      problem_ = "notified of " + expected::text(plain) + ", which did not change";
    return;
  }
  if (present && known != rows_.end()) {
    if (problem_.empty())
      problem_ = "not notified that " + expected::text(plain) + " went before it came";
  }
  if (present) {
    rows_[plain] = present;
  } else {
    rows_.erase(known);
  }
  changes_.push_back({plain, present != nullptr});
  if (during_) during_(changes_.back());
}

std::vector<expected::Change> RandomTableRecorder::takeChanges() {
  return std::exchange(changes_, {});
}

}  // namespace MiscSnmp::Agent
