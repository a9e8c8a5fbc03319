#include "Qel/NotifieeList.h"

#include <algorithm>

namespace Qel {

void NotifieeList::clear() noexcept {
  for (Walk* walk = walks_; walk != nullptr; walk = walk->outer) walk->list = nullptr;
  walks_ = nullptr;
  std::vector<PtrInterface::NotifieeConst*> leaving;
  leaving.swap(notifiees_);
  size_ = 0;
  for (PtrInterface::NotifieeConst* notifiee : leaving) {
    if (notifiee != nullptr) notifiee->notifierGone();
  }
  std::vector<PtrInterface::NotifieeConst*> unbinding;
  unbinding.swap(plainBindings_);
  for (PtrInterface::NotifieeConst* notifiee : unbinding) notifiee->notifierGone();
}

void NotifieeList::join(PtrInterface::NotifieeConst& notifiee) {
  notifiees_.push_back(&notifiee);
  ++size_;
}

void NotifieeList::leave(PtrInterface::NotifieeConst& notifiee) noexcept {
  const auto found = std::find(notifiees_.begin(), notifiees_.end(), &notifiee);
  if (found == notifiees_.end()) return;
  --size_;
  if (walks_ != nullptr) {
    *found = nullptr;
  } else {
    notifiees_.erase(found);
  }
}

void NotifieeList::zeroReferences() {
  visitRegistered([](PtrInterface::NotifieeConst& notifiee) { notifiee.onZeroReferences(); });
}

void NotifieeList::walkEnds(Walk* outer) noexcept {
  walks_ = outer;
  if (outer == nullptr) std::erase(notifiees_, nullptr);
}

}  // namespace Qel
