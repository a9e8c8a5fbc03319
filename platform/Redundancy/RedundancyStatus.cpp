#include "Redundancy/RedundancyStatus.h"

#include <memory>

#include "Qel/FirstError.h"
#include "Qel/TypeNode.h"
#include "Qel/Types.h"
#include "Redundancy/RedundancyStatusCodec.h"

namespace Redundancy {

namespace {

const RedundancyStatus& statusOf(const Qel::PtrInterface& object) {
  return dynamic_cast<const RedundancyStatus&>(object);
}

const auto registration = Qel::typeNodeIs({
    .name = "Redundancy::RedundancyStatus",
    .attributes = {{"name", [](const auto& object) { return statusOf(object).name(); }},
                   {"protocol",
                    [](const auto& object) {
                      return static_cast<U32>(statusOf(object).protocol());
                    }},
                   {"switchoverCapable",
                    [](const auto& object) { return statusOf(object).switchoverCapable(); }}},
    .newEntityForDir = [](Qel::Dir&,
                          const Qel::Name& name) { return Qel::make<RedundancyStatus>(name); },
    .documentCodec = std::make_shared<const RedundancyStatusCodec>(),
});

}  // namespace

void RedundancyStatus::NotifieeConst::notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) {
  Qel::Entity::NotifieeConst::notifierIs(Qel::ptrCast<RedundancyStatus const>(notifier));
}

Qel::Ptr<RedundancyStatus const> RedundancyStatus::NotifieeConst::redundancyStatus() const {
  return Qel::ptrCast<RedundancyStatus const>(notifier());
}

void RedundancyStatus::statusIs(RedundancyProtocol protocol, bool switchoverCapable) {
  const bool protocolChanges = protocol != protocol_;
  const bool capableChanges = switchoverCapable != switchoverCapable_;
  protocol_ = protocol;
  switchoverCapable_ = switchoverCapable;
  const Qel::Ptr<RedundancyStatus> alive(this);
  Qel::FirstError error;
  const auto tell = [&](void (NotifieeConst::*on)()) {
    error.keepOf([&] { notify<NotifieeConst>([on](NotifieeConst& each) { (each.*on)(); }); });
  };
  if (protocolChanges) tell(&NotifieeConst::onProtocol);
  if (capableChanges) tell(&NotifieeConst::onSwitchoverCapable);
  error.raise();
}

const Qel::TypeNode* RedundancyStatus::fwkType() const { return &registration->node(); }

}  // namespace Redundancy
