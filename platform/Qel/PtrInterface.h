#pragma once

#include <atomic>
#include <cstddef>

#include "Qel/Assert.h"
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

  void referenceNew() const noexcept { add(word_, U32{1}); }
  void referenceDel() const noexcept {
    const U32 word = add(word_, ~U32{0});
    if ((word & kCountMask) == 0 || (word & kWatchesReferences) != 0) [[unlikely]]
      released(word);
  }
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
  static std::size_t liveObjects() noexcept { return live_.load(std::memory_order_relaxed); }

  // Process-wide switch: true makes every count update atomic. Set before a second thread starts.
  static void threadSafePointersIs(bool threadSafe) noexcept;

 protected:
  PtrInterface() noexcept { add(live_, std::size_t{1}); }
  virtual ~PtrInterface() {
    // One is left: the birth reference of an object that never was complete, or the one that guards
    // the destruction. More would dangle from here on.
    QEL_ASSERT(references() <= 1);
    add(live_, ~std::size_t{0});
  }

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
  void flagIs(U32 mask, bool value) const noexcept {
    if (threadSafe_.load(std::memory_order_relaxed)) {
      if (value) {
        word_.fetch_or(mask, std::memory_order_relaxed);
      } else {
        word_.fetch_and(~mask, std::memory_order_relaxed);
      }
      return;
    }
    const U32 word = word_.load(std::memory_order_relaxed);
    word_.store(value ? word | mask : word & ~mask, std::memory_order_relaxed);
  }
  // Returns the sum. As every change of a count, here for the compiler to see: it is most of what a
  // walk does.
  template <class Number>
  static Number add(std::atomic<Number>& number, Number delta) noexcept {
    if (threadSafe_.load(std::memory_order_relaxed)) {
      return number.fetch_add(delta, std::memory_order_acq_rel) + delta;
    }
    const Number sum = number.load(std::memory_order_relaxed) + delta;
    number.store(sum, std::memory_order_relaxed);
    return sum;
  }
  // What a release leads to that leaves `word` without a reference, or watched.
  void released(U32 word) const noexcept;
  // Called when somebody holds the reference that the object was born with.
  void constructionEnds() const noexcept {
    if (flag(kUnderConstruction)) flagIs(kUnderConstruction, false);
  }

  // In the platform's library alone: one for the process and its plug-ins.
  static std::atomic<bool> threadSafe_;
  static std::atomic<std::size_t> live_;

  mutable std::atomic<U32> word_{kUnderConstruction | 1};
};

}  // namespace Qel
