#pragma once

#include <atomic>
#include <cstddef>

#include "Qel/Types.h"

namespace Qel {

class NotifieeList;
class OwnerInterface;
class TypeNode;
template <class T>
class Ptr;

// Base of every counted object.
//
// One word carries the reference count and the object's flags: notifications active, marked for
// deletion (zombie) and "watches its references" (see OwnerInterface). All flags start off.
//
// An object is born with one reference, which Qel::make hands to the first Ptr. A constructor may
// therefore hand out references to the object it is building, and make children that hold some:
// they neither end it early nor end it twice when the constructor throws. The last reference
// destroys the object; meanwhile it holds one reference to itself, so that a destructor, too, may
// hand out short-lived references. A reference that outlives the object is a programming error and
// ends the process.
//
// Counting is plain unless threadSafePointersIs(true) was called; single-threaded programs never
// do.
class PtrInterface {
 public:
  class NotifieeConst;

  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  void referenceNew() const noexcept;
  void referenceDel() const noexcept;
  U32 references() const noexcept { return word_.load(std::memory_order_relaxed) & kCountMask; }

  bool hasNotificationActive() const noexcept { return flag(kNotificationActive); }
  // Switches notifications on or off; derived classes pass the switch on to what they hold.
  virtual void hasNotificationActiveIs(bool active);

  bool isMarkedForDeletion() const noexcept { return flag(kMarkedForDeletion); }
  // Marks the object (and what reacts on its behalf) as a zombie, which reacts to nothing.
  virtual void qelDoZombieReactors(bool zombie);

  // Called with true when the last reference has gone, just before destruction.
  virtual void zeroReferencesIs(bool zeroReferences);

  // The registered type of the object, or null for a type outside the registry.
  virtual const TypeNode* fwkType() const;

  // The list that observers of this object join, or null when it cannot be observed.
  virtual NotifieeList* notifieeList() const;

  // The object whose child this one is, or null; see OwnerInterface.
  virtual OwnerInterface* qelOwner() const;

  // Objects alive in this process, those under construction included.
  static std::size_t liveObjects() noexcept;

  // Process-wide switch: true makes every count update atomic. Set before a second thread starts.
  static void threadSafePointersIs(bool threadSafe) noexcept;

 protected:
  PtrInterface() noexcept;
  virtual ~PtrInterface();

  void notificationActiveFlagIs(bool value) noexcept { flagIs(kNotificationActive, value); }
  void markedForDeletionFlagIs(bool value) noexcept { flagIs(kMarkedForDeletion, value); }

  // True makes referenceDel call qelReferenceReleased after each release that leaves references.
  void watchesReferencesIs(bool value) noexcept { flagIs(kWatchesReferences, value); }
  // Tells the owner, if there is one, that it may be held by its children alone now.
  virtual void qelReferenceReleased();

  // Destroys the object although references remain that die with it.
  void destroy() noexcept;

 private:
  friend class OwnerInterface;
  template <class T>
  friend class Ptr;

  static constexpr U32 kNotificationActive = 1U << 31;
  static constexpr U32 kMarkedForDeletion = 1U << 30;
  static constexpr U32 kWatchesReferences = 1U << 29;
  static constexpr U32 kDestroying = 1U << 28;
  static constexpr U32 kUnderConstruction = 1U << 27;
  static constexpr U32 kCountMask = kUnderConstruction - 1;

  bool flag(U32 mask) const noexcept { return (word_.load(std::memory_order_relaxed) & mask) != 0; }
  void flagIs(U32 mask, bool value) const noexcept;
  U32 wordAdd(U32 delta) const noexcept;
  // Called when somebody holds the reference that the object was born with.
  void constructionEnds() const noexcept {
    if (flag(kUnderConstruction)) flagIs(kUnderConstruction, false);
  }

  mutable std::atomic<U32> word_{kUnderConstruction | 1};
};

}  // namespace Qel
