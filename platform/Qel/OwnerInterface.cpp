#include "Qel/OwnerInterface.h"

#include <algorithm>

#include "Qel/Assert.h"

namespace Qel {

void OwnerInterface::qelChildIs(PtrInterface& child) {
  QEL_ASSERT(child.qelOwner() == this);
  QEL_ASSERT(!child.flag(kWatchesReferences));
  children_.push_back(&child);
  child.watchesReferencesIs(true);
  watchesReferencesIs(true);
}

void OwnerInterface::qelChildDel(PtrInterface& child) noexcept {
  if (std::erase(children_, &child) == 0) return;
  child.watchesReferencesIs(false);
  watchesReferencesIs(!children_.empty());
}

void OwnerInterface::qelReferenceReleased() {
  // While it is being built or destroyed, somebody else sees to its end, and its list of children
  // may name some that have gone already.
  if (flag(kUnderConstruction | kDestroying)) return;
  if (onlyChildrenRefer()) destroy();
}

bool OwnerInterface::onlyChildrenRefer() const noexcept {
  return references() == children_.size() &&
         std::all_of(children_.begin(), children_.end(),
                     [](const PtrInterface* child) { return child->references() == 1; });
}

}  // namespace Qel
