#pragma once

#include <vector>

#include "Qel/Entity.h"
#include "Qel/LinkQueue.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/RbTreeMap.h"
#include "Qel/Types.h"
#include "System/ResetCause.h"

namespace System {

// One reload of a cell and its causes, in the order in which they were recorded.
//
// Its key is the reboot index under which a history holds it (0 is the latest reload) and never
// changes. Causes are keyed 0, 1, 2 ... Every change is told before the mutator returns; a change
// that changes nothing is silent.
class ResetInstance final : public Qel::Entity, public Qel::RbTreeMapLinks {
 public:
  class QelCauseQ final : public Qel::LinkQueueElement<U32, ResetCause> {
   public:
    using LinkQueueElement::LinkQueueElement;
  };
  using CauseQ = Qel::LinkQueue<QelCauseQ, U32, ResetCause>;

  class NotifieeConst : public Qel::Entity::NotifieeConst {
   public:
    using Qel::Entity::NotifieeConst::NotifieeConst;
    void notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) override;
    // The watched instance, or null.
    Qel::Ptr<ResetInstance const> resetInstance() const;

    // The cause under `key` was added, changed or removed.
    virtual void onCauseQ(U32 /*key*/) {}
    // The queue was replaced as a whole.
    virtual void onCauseQqelImmediate() {}
    virtual void onCauseQMetadata() {}
    virtual void onCauseQ() {}
  };

  explicit ResetInstance(U32 key);

  U32 key() const noexcept { return key_; }
  const U32& fwkKey() const noexcept { return key_; }
  const CauseQ& causeQ() const noexcept { return causeQ_; }

  // Appends a cause and returns its key; tells onCauseQ(key).
  U32 causeQPush(const ResetCause& cause);
  // Removes the cause under `key`; tells onCauseQ(key). False when there is none.
  bool causeQDel(U32 key);
  // Replaces all causes; tells onCauseQqelImmediate() once.
  void causeQIs(const std::vector<ResetCause>& causes);

  const Qel::TypeNode* fwkType() const override;

 private:
  bool causesEqual(const std::vector<ResetCause>& causes) const;

  const U32 key_;
  CauseQ causeQ_;
};

}  // namespace System
