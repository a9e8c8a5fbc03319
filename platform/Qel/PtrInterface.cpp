#include "Qel/PtrInterface.h"

#include "Qel/OwnerInterface.h"

namespace Qel {

std::atomic<bool> PtrInterface::threadSafe_{false};
std::atomic<std::size_t> PtrInterface::live_{0};

void PtrInterface::hasNotificationActiveIs(bool active) { notificationActiveFlagIs(active); }

void PtrInterface::qelDoZombieReactors(bool zombie) { markedForDeletionFlagIs(zombie); }

void PtrInterface::zeroReferencesIs(bool /*zeroReferences*/) {}

const TypeNode* PtrInterface::fwkType() const { return nullptr; }

NotifieeList* PtrInterface::notifieeList() const { return nullptr; }

OwnerInterface* PtrInterface::qelOwner() const { return nullptr; }

void PtrInterface::qelReferenceReleased() {
  if (OwnerInterface* owner = qelOwner()) owner->qelReferenceReleased();
}

void PtrInterface::threadSafePointersIs(bool threadSafe) noexcept { threadSafe_ = threadSafe; }

void PtrInterface::released(U32 word) const noexcept {
  // The count of a const object is shared by whoever may end it, so const ends here.
  if ((word & kCountMask) == 0) {
    const_cast<PtrInterface*>(this)->destroy();
  } else {
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
