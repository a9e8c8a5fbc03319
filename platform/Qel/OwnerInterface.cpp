#include "Qel/OwnerInterface.h"

#include <algorithm>

namespace Qel {

void OwnerInterface::qelChildIs(PtrInterface& child) {
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
  if (onlyChildrenRefer()) destroy();
}

bool OwnerInterface::onlyChildrenRefer() const noexcept {
  return references() == children_.size() &&
         std::all_of(children_.begin(), children_.end(),
                     [](const PtrInterface* child) { return child->references() == 1; });
}

}  // namespace Qel
