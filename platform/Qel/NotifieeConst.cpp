#include "Qel/NotifieeConst.h"

#include "Qel/NotifieeList.h"

namespace Qel {

PtrInterface::NotifieeConst::~NotifieeConst() {
  leave();
  if (reference_ == NotifierReference::plain) plainBindingIs(nullptr);
}

void PtrInterface::NotifieeConst::notifierIs(Ptr<PtrInterface const> notifier) {
  if (notifier.get() == notifier_) return;
  leave();
  if (reference_ == NotifierReference::plain) {
    plainBindingIs(notifier.get());
    return;
  }
  notifier_ = notifier.get();
  // The swap releases the old notifier last, when nothing here refers to it any more.
  counted_.swap(notifier);
}

void PtrInterface::NotifieeConst::isRegisteredNotifieeIs(bool registered) {
  if (registered == isRegisteredNotifiee()) return;
  if (!registered) {
    leave();
    return;
  }
  NotifieeList* list = notifier_ != nullptr ? notifier_->notifieeList() : nullptr;
  if (list == nullptr) return;
  list->join(*this);
  list_ = list;
}

void PtrInterface::NotifieeConst::qelDoZombieReactors(bool zombie) {
  if (zombie == isMarkedForDeletion()) return;
  if (notifier_ != nullptr) hasNotificationActiveIs(!zombie);
  markedForDeletionFlagIs(zombie);
}

void PtrInterface::NotifieeConst::leave() noexcept {
  if (list_ == nullptr) return;
  list_->leave(*this);
  list_ = nullptr;
}

void PtrInterface::NotifieeConst::plainBindingIs(const PtrInterface* notifier) {
  if (notifier_ != nullptr) notifier_->notifieeList()->plainBindingDel(*this);
  NotifieeList* const list = notifier != nullptr ? notifier->notifieeList() : nullptr;
  if (list != nullptr) list->plainBindingIs(*this);
  notifier_ = list != nullptr ? notifier : nullptr;
}

void PtrInterface::NotifieeConst::notifierGone() noexcept {
  list_ = nullptr;
  if (reference_ == NotifierReference::plain) notifier_ = nullptr;
}

}  // namespace Qel
