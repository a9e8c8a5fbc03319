#include "System/ResetCauseHistory.h"

#include <memory>

#include "Qel/TypeNode.h"
#include "System/ResetCauseHistoryCodec.h"

namespace System {

namespace {

const auto registration = Qel::typeNodeIs({
    .name = "System::ResetCauseHistory",
    .attributes = {{"name",
                    [](const Qel::PtrInterface& object) {
                      return dynamic_cast<const ResetCauseHistory&>(object).name();
                    }}},
    .newEntityForDir = [](Qel::Dir&,
                          const Qel::Name& name) { return Qel::make<ResetCauseHistory>(name); },
    .documentCodec = std::make_shared<const ResetCauseHistoryCodec>(),
});

}  // namespace

void ResetCauseHistory::NotifieeConst::notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) {
  Qel::Entity::NotifieeConst::notifierIs(Qel::ptrCast<ResetCauseHistory const>(notifier));
}

void ResetCauseHistory::NotifieeConst::hasNotificationActiveIs(bool active) {
  const bool wasActive = hasNotificationActive();
  Qel::Entity::NotifieeConst::hasNotificationActiveIs(active);
  if (active && !wasActive && isRegisteredNotifiee()) onRebootHistoryqelImmediate();
}

Qel::Ptr<ResetCauseHistory const> ResetCauseHistory::NotifieeConst::resetCauseHistory() const {
  return Qel::ptrCast<ResetCauseHistory const>(notifier());
}

Qel::Ptr<ResetInstance> ResetCauseHistory::rebootHistoryIs(U32 index) {
  if (Qel::Ptr<ResetInstance> present = rebootHistory(index)) return present;
  Qel::Ptr<ResetInstance> instance = Qel::make<ResetInstance>(index);
  rebootHistoryIs(instance);
  return instance;
}

void ResetCauseHistory::rebootHistoryIs(const Qel::Ptr<ResetInstance>& instance) {
  const U32 index = instance->key();
  if (rebootHistory(index) == instance) return;
  rebootHistory_.rowIs(instance);
  rebootHistoryNotify(index);
}

Qel::Ptr<ResetInstance> ResetCauseHistory::rebootHistoryDel(U32 index) {
  Qel::Ptr<ResetInstance> removed = rebootHistory_.rowDel(index);
  if (removed) rebootHistoryNotify(index);
  return removed;
}

void ResetCauseHistory::rebootHistoryNotify(U32 index) {
  notify<NotifieeConst>([index](NotifieeConst& notifiee) { notifiee.onRebootHistory(index); });
}

const Qel::TypeNode* ResetCauseHistory::fwkType() const { return &registration->node(); }

}  // namespace System
