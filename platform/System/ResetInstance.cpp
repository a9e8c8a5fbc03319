#include "System/ResetInstance.h"

#include "Qel/Strep.h"
#include "Qel/TypeNode.h"

namespace System {

namespace {

const auto registration = Qel::typeNodeIs({
    .name = "System::ResetInstance",
    .attributes = {{"key",
                    [](const Qel::PtrInterface& object) {
                      return dynamic_cast<const ResetInstance&>(object).key();
                    }}},
});

}  // namespace

void ResetInstance::NotifieeConst::notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) {
  Qel::Entity::NotifieeConst::notifierIs(Qel::ptrCast<ResetInstance const>(notifier));
}

Qel::Ptr<ResetInstance const> ResetInstance::NotifieeConst::resetInstance() const {
  return Qel::ptrCast<ResetInstance const>(notifier());
}

ResetInstance::ResetInstance(U32 key) : Qel::Entity(Qel::valueToStrep(key)), key_(key) {}

U32 ResetInstance::causeQPush(const ResetCause& cause) {
  const U32 key = causeQ_.push(cause);
  notify<NotifieeConst>([key](NotifieeConst& notifiee) { notifiee.onCauseQ(key); });
  return key;
}

bool ResetInstance::causeQDel(U32 key) {
  if (!causeQ_.del(key)) return false;
  notify<NotifieeConst>([key](NotifieeConst& notifiee) { notifiee.onCauseQ(key); });
  return true;
}

void ResetInstance::causeQIs(const std::vector<ResetCause>& causes) {
  if (causesEqual(causes)) return;
  causeQ_.clear();
  for (const ResetCause& cause : causes) causeQ_.push(cause);
  notify<NotifieeConst>([](NotifieeConst& notifiee) { notifiee.onCauseQqelImmediate(); });
}

bool ResetInstance::causesEqual(const std::vector<ResetCause>& causes) const {
  if (causes.size() != causeQ_.members()) return false;
  auto it = causeQ_.iteratorConst();
  for (U32 key = 0; it; ++it, ++key) {
    // A queue that lost its head has the right number of causes under the wrong keys.
    if (it.key() != key || !(it.value() == causes[key])) return false;
  }
  return true;
}

const Qel::TypeNode* ResetInstance::fwkType() const { return &registration->node(); }

}  // namespace System
