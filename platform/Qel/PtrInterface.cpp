#include "Qel/PtrInterface.h"

#include "Qel/Assert.h"
#include "Qel/OwnerInterface.h"

namespace Qel {

namespace {

std::atomic<bool> threadSafeCounts{false};
std::atomic<std::size_t> liveCount{0};

}  // namespace

PtrInterface::PtrInterface() noexcept { liveCount.fetch_add(1, std::memory_order_relaxed); }

PtrInterface::~PtrInterface() {
  // One is left: the birth reference of an object that never was complete, or the one that guards
  // the destruction. More would dangle from here on.
  QEL_ASSERT(references() <= 1);
  liveCount.fetch_sub(1, std::memory_order_relaxed);
}

void PtrInterface::hasNotificationActiveIs(bool active) { notificationActiveFlagIs(active); }

void PtrInterface::qelDoZombieReactors(bool zombie) { markedForDeletionFlagIs(zombie); }

void PtrInterface::zeroReferencesIs(bool /*zeroReferences*/) {}

const TypeNode* PtrInterface::fwkType() const { return nullptr; }

NotifieeList* PtrInterface::notifieeList() const { return nullptr; }

OwnerInterface* PtrInterface::qelOwner() const { return nullptr; }

void PtrInterface::qelReferenceReleased() {
  if (OwnerInterface* owner = qelOwner()) owner->qelReferenceReleased();
}

std::size_t PtrInterface::liveObjects() noexcept {
  return liveCount.load(std::memory_order_relaxed);
}

void PtrInterface::threadSafePointersIs(bool threadSafe) noexcept { threadSafeCounts = threadSafe; }

U32 PtrInterface::wordAdd(U32 delta) const noexcept {
  if (threadSafeCounts.load(std::memory_order_relaxed)) {
    return word_.fetch_add(delta, std::memory_order_acq_rel) + delta;
  }
  const U32 word = word_.load(std::memory_order_relaxed) + delta;
  word_.store(word, std::memory_order_relaxed);
  return word;
}

void PtrInterface::flagIs(U32 mask, bool value) const noexcept {
  if (value) {
    word_.fetch_or(mask, std::memory_order_relaxed);
  } else {
    word_.fetch_and(~mask, std::memory_order_relaxed);
  }
}

void PtrInterface::referenceNew() const noexcept { wordAdd(1); }

void PtrInterface::referenceDel() const noexcept {
  const U32 word = wordAdd(~U32{0});
  // The count of a const object is shared by whoever may end it, so const ends here.
  if ((word & kCountMask) == 0) {
    const_cast<PtrInterface*>(this)->destroy();
  } else if ((word & kWatchesReferences) != 0) {
    const_cast<PtrInterface*>(this)->qelReferenceReleased();
  }
}

void PtrInterface::destroy() noexcept {
  if (flag(kDestroying)) return;
  flagIs(kDestroying, true);
  referenceNew();
  zeroReferencesIs(true);
  delete this;
}

}  // namespace Qel
