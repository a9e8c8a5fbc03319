#pragma once

#include <cstddef>
#include <vector>

#include "Qel/FirstError.h"
#include "Qel/NotifieeConst.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"

namespace Qel {

// The observers of one notifier, in the order in which they joined.
//
// A notification may do anything to the list: whoever leaves or dies in it hears nothing more of
// it; whoever joins waits for another one, be it nested in this one; notifications may nest; and
// the notifier itself may go, which ends all that are under way. A notifiee that throws silences
// nobody: the others are told all the same, then the first error reaches whoever notified, with the
// state that was told of already in place; later errors of the same notification are dropped. The
// pointers are plain: a notifiee that goes takes itself off the list.
class NotifieeList {
 public:
  NotifieeList() = default;
  NotifieeList(const NotifieeList&) = delete;
  NotifieeList& operator=(const NotifieeList&) = delete;
  ~NotifieeList() { clear(); }

  bool empty() const noexcept { return size_ == 0; }
  std::size_t size() const noexcept { return size_; }

  // Deregisters every notifiee and ends the plain bindings.
  void clear() noexcept;

  void join(PtrInterface::NotifieeConst& notifiee);
  void leave(PtrInterface::NotifieeConst& notifiee) noexcept;

  // Bindings that do not keep the notifier alive, registered or not: they end with the list.
  void plainBindingIs(PtrInterface::NotifieeConst& notifiee) {
    plainBindings_.push_back(&notifiee);
  }
  void plainBindingDel(const PtrInterface::NotifieeConst& notifiee) noexcept {
    std::erase(plainBindings_, &notifiee);
  }

  // Tells every registered notifiee, inactive ones and zombies too, that its notifier has no
  // references left.
  void zeroReferences();

  // Calls `call` on every notifiee that was registered at the start, still is, is active and is no
  // zombie.
  template <class Call>
  void visit(const Call& call) {
    visitRegistered([&call](PtrInterface::NotifieeConst& notifiee) {
      if (notifiee.hears()) call(notifiee);
    });
  }

  // The same, on those of type Notifiee; observers of a more basic type are passed over.
  template <class Notifiee, class Call>
  void visitAs(const Call& call) {
    visit([&call](PtrInterface::NotifieeConst& base) {
      if (auto* notifiee = dynamic_cast<Notifiee*>(&base)) call(*notifiee);
    });
  }

 private:
  // One notification under way, on the stack of whoever notifies.
  struct Walk {
    explicit Walk(NotifieeList& visited) : list(&visited), outer(visited.walks_) {
      visited.walks_ = this;
    }
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;
    ~Walk() {
      if (list != nullptr) list->walkEnds(outer);
    }
    NotifieeList* list;  // null once the list has been destroyed or cleared
    Walk* outer;
  };

  // Calls `call` on every notifiee that was registered at the start and still is.
  template <class Call>
  void visitRegistered(const Call& call);
  void walkEnds(Walk* outer) noexcept;

  // Holes keep running walks valid; the outermost walk closes them when it ends.
  std::vector<PtrInterface::NotifieeConst*> notifiees_;
  std::vector<PtrInterface::NotifieeConst*> plainBindings_;
  std::size_t size_ = 0;
  Walk* walks_ = nullptr;
};

template <class Call>
void NotifieeList::visitRegistered(const Call& call) {
  if (empty()) return;
  FirstError error;
  {
    Walk walk(*this);
    const std::size_t end = notifiees_.size();
    for (std::size_t i = 0; walk.list != nullptr && i < end; ++i) {
      if (notifiees_[i] == nullptr) continue;
      // The notifiee may let go of itself while it runs.
      const Ptr<PtrInterface::NotifieeConst> held(notifiees_[i]);
      error.keepOf([&] { call(*held); });
    }
  }
  error.raise();
}

}  // namespace Qel
