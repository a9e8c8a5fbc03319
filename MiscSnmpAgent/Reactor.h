#pragma once

#include <utility>

#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"

namespace MiscSnmp::Agent {

// What the nested reactors of the state machines share: a plain back pointer to the owner, cleared
// when the owner lets the reactor go, and liveness.
//
// A reactor is live while it is not marked for deletion and has an owner. Construction binds, takes
// the owner's notification and zombie flags and registers, without running any reaction. Reactions
// hold their owner by a counted reference, so an owner that is let go inside a reaction ends when
// the reaction does.
template <class NotifieeBase, class Owner>
class Reactor : public NotifieeBase {
 public:
  Reactor(const Qel::Ptr<Qel::PtrInterface const>& notifier, Owner* owner) : owner_(owner) {
    NotifieeBase::notifierIs(notifier);
    // Before it is registered: what stands already is no news to a new reactor.
    NotifieeBase::hasNotificationActiveIs(owner->hasNotificationActive());
    NotifieeBase::isRegisteredNotifieeIs(true);
    NotifieeBase::qelDoZombieReactors(owner->isMarkedForDeletion());
  }

  void hasNotificationActiveIs(bool active) override {
    if (active != this->hasNotificationActive()) NotifieeBase::hasNotificationActiveIs(active);
  }

  void ownerIs(Owner* owner) noexcept { owner_ = owner; }

 protected:
  // The owner, or null when the reactor is not live.
  Qel::Ptr<Owner> live() const {
    return Qel::Ptr<Owner>(this->isMarkedForDeletion() ? nullptr : owner_);
  }

 private:
  Owner* owner_;
};

// Takes the reactor out of `slot` and silences it for good; null when there is none. The caller
// clears the back pointer when nothing needs it any more.
template <class SomeReactor>
Qel::Ptr<SomeReactor> reactorTake(Qel::Ptr<SomeReactor>& slot) {
  Qel::Ptr<SomeReactor> taken = std::exchange(slot, nullptr);
  if (taken) taken->qelDoZombieReactors(true);
  return taken;
}

// Ends the reactor in `slot`: silenced, without owner, switched off.
template <class SomeReactor>
void reactorDel(Qel::Ptr<SomeReactor>& slot) {
  const Qel::Ptr<SomeReactor> dropped = reactorTake(slot);
  if (!dropped) return;
  dropped->ownerIs(nullptr);
  dropped->hasNotificationActiveIs(false);
}

}  // namespace MiscSnmp::Agent
