#pragma once

#include "Qel/Entity.h"
#include "Qel/Name.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/RbTreeMap.h"
#include "Qel/Types.h"
#include "System/ResetInstance.h"

namespace System {

// The remembered reloads of one cell, numbered from the last one, 0, backwards.
//
// Every change of the collection is told through onRebootHistory(index) before the mutator returns.
// Switching a registered notifiee's notifications on calls its onRebootHistoryqelImmediate() at
// once, so that it looks at what stands there already.
class ResetCauseHistory final : public Qel::Entity {
 public:
  using RebootHistory = Qel::RbTreeMap<ResetInstance, U32>;

  class NotifieeConst : public Qel::Entity::NotifieeConst {
   public:
    using Qel::Entity::NotifieeConst::NotifieeConst;
    void notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) override;
    void hasNotificationActiveIs(bool active) override;
    // The watched history, or null.
    Qel::Ptr<ResetCauseHistory const> resetCauseHistory() const;

    // The reload under `key` was added, replaced or removed.
    virtual void onRebootHistory(U32 /*key*/) {}
    // Everything that stands is news to this notifiee.
    virtual void onRebootHistoryqelImmediate() {}
    virtual void onRebootHistory() {}
  };

  explicit ResetCauseHistory(const Qel::Name& name) : Qel::Entity(name) {}

  const RebootHistory& rebootHistory() const noexcept { return rebootHistory_; }
  // The reload under `index`, or null.
  Qel::Ptr<ResetInstance> rebootHistory(U32 index) const { return rebootHistory_[index]; }

  // The reload under `index`, made without causes where absent.
  Qel::Ptr<ResetInstance> rebootHistoryIs(U32 index);
  // Stores a reload under its own key, in the place of another object under that key.
  void rebootHistoryIs(const Qel::Ptr<ResetInstance>& instance);
  // Removes and returns the reload under `index`, or null.
  Qel::Ptr<ResetInstance> rebootHistoryDel(U32 index);

  const Qel::TypeNode* fwkType() const override;

 private:
  void rebootHistoryNotify(U32 index);

  RebootHistory rebootHistory_;
};

}  // namespace System
