#pragma once

#include <vector>

#include "Qel/PtrInterface.h"

namespace Qel {

// Base of an object that holds children which hold counted references back to it.
//
// The references of the children do not keep the owner alive: it is destroyed as soon as only they
// are left. A child that somebody else holds as well does count, so whoever keeps a child keeps its
// owner until the child is let go.
//
// Contract of derived classes: qelChildIs(child) when the owner has stored its one reference to a
// child that holds one reference to the owner; qelChildDel(child) before that reference is
// released; the child's qelOwner() names the owner. The destructor releases every child. Families
// do not nest: a child has no children, and one owner.
class OwnerInterface : public PtrInterface {
 protected:
  void qelChildIs(PtrInterface& child);
  void qelChildDel(PtrInterface& child) noexcept;

  void qelReferenceReleased() override;

 private:
  friend class PtrInterface;

  bool onlyChildrenRefer() const noexcept;

  std::vector<PtrInterface*> children_;
};

}  // namespace Qel
