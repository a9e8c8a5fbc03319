#pragma once

#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"

namespace Qel {

// How a notifiee refers to what it watches.
enum class NotifierReference {
  counted,  // keeps the notifier alive; what reactors use
  plain,    // does not; the binding ends when the notifier is destroyed or clears its list
};

// Base of everything that watches an object. Each type that can be watched derives a NotifieeConst
// with its notifications, which do nothing until an observer overrides those that it follows:
//
//   class LampWatch final : public Lamp::NotifieeConst {
//    public:
//     explicit LampWatch(const Ptr<Lamp>& lamp) {
//       notifierIs(lamp);               // 1. binds: this is what it watches
//       isRegisteredNotifieeIs(true);   // 2. joins the list of the lamp's observers
//       hasNotificationActiveIs(true);  // 3. switches on: from now on it is called
//     }
//     void onColour() override { ... }  // the new colour is the lamp's already
//   };
//   const auto watch = make<LampWatch>(lamp);  // watches until the last reference goes
//
// Binding (notifierIs) and joining the notifier's list (isRegisteredNotifieeIs) are two steps; a
// rebinding leaves the old list and does not join the new one. Only a registered notifiee whose
// notifications are active and that is no zombie is called. The destructor leaves the list. A
// notifiee may be destroyed, rebound or deregistered from inside any notification, and the notifier
// may be let go of.
class PtrInterface::NotifieeConst : public PtrInterface {
 public:
  explicit NotifieeConst(NotifierReference reference = NotifierReference::counted) noexcept
      : reference_(reference) {}
  ~NotifieeConst() override;

  // The watched object, or null.
  Ptr<PtrInterface const> notifier() const { return Ptr<PtrInterface const>(notifier_); }
  // Binds to `notifier`; null, or an object of a type that this notifiee cannot watch, unbinds.
  // A plain reference cannot watch what has no notifiee list. Binding to the present notifier
  // changes nothing.
  virtual void notifierIs(Ptr<PtrInterface const> notifier);

  bool isRegisteredNotifiee() const noexcept { return list_ != nullptr; }
  // Joins or leaves the notifier's list; without a notifier there is nothing to join.
  virtual void isRegisteredNotifieeIs(bool registered);

  // A zombie hears nothing: its notifications are switched to the opposite of the flag.
  void qelDoZombieReactors(bool zombie) override;

  // The notifier has no references left and is about to go. Told to every registered notifiee,
  // whether or not it would hear anything else.
  virtual void onZeroReferences() {}

 private:
  friend class NotifieeList;
  bool hears() const noexcept { return hasNotificationActive() && !isMarkedForDeletion(); }
  void leave() noexcept;
  // Called by the list when the notifier is destroyed.
  void notifierGone() noexcept;
  // For a plain reference: has the notifier's list end the binding, in whatever state it is.
  void plainBindingIs(const PtrInterface* notifier);

  const NotifierReference reference_;
  const PtrInterface* notifier_ = nullptr;
  Ptr<PtrInterface const> counted_;
  NotifieeList* list_ = nullptr;
};

}  // namespace Qel
