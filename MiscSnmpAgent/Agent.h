#pragma once

#include "Kavra/EntityManager.h"
#include "MiscSnmp/GeneralMib.h"
#include "MiscSnmpAgent/ResetHistorySm.h"
#include "Qel/Entity.h"
#include "Qel/LiveCount.h"
#include "Qel/Name.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/String.h"
#include "Qel/TypeNode.h"
#include "Redundancy/RedundancyStatus.h"
#include "System/ResetCauseHistory.h"

namespace MiscSnmp::Agent {

// Holds the inputs of the reset-history machinery and owns its one ResetHistorySm, which it makes
// as soon as it is made itself. The inputs never change. Destruction switches the machine off, and
// one that was set by whoever heard of that.
class Agent final : public Qel::Entity, public Qel::LiveCount<Agent> {
 public:
  class NotifieeConst : public Qel::Entity::NotifieeConst {
   public:
    using Qel::Entity::NotifieeConst::NotifieeConst;
    void notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) override;
    // The state machine was set or removed.
    virtual void onResetHistorySm() {}
  };

  // An error while the state machine is made passes to the caller and leaves no object behind.
  Agent(const Qel::Name& name, const Qel::Ptr<Redundancy::RedundancyStatus>& redundancyStatus,
        const Qel::Ptr<GeneralMib>& generalMib,
        const Qel::Ptr<System::ResetCauseHistory const>& curCellResetHistory,
        const Qel::Ptr<Kavra::EntityManager>& entityManager, const Qel::String& cellType);
  ~Agent() override;

  const Qel::Ptr<Redundancy::RedundancyStatus>& redundancyStatus() const noexcept {
    return redundancyStatus_;
  }
  const Qel::Ptr<GeneralMib>& generalMib() const noexcept { return generalMib_; }
  const Qel::Ptr<System::ResetCauseHistory const>& curCellResetHistory() const noexcept {
    return curCellResetHistory_;
  }
  const Qel::Ptr<Kavra::EntityManager>& entityManager() const noexcept { return entityManager_; }
  const Qel::String& cellType() const noexcept { return cellType_; }

  const Qel::Ptr<ResetHistorySm>& resetHistorySm() const noexcept { return resetHistorySm_; }
  // A machine for these inputs: the present one when it has them, else a new one in its place. The
  // old one is let go, not switched off: it ends with its last reference, and until then it may
  // write rows. Notifiees hear of the new one before it is switched on. An error while it is made
  // keeps the old one; an error while it is told of or switched on takes it away again, so that
  // asking again makes another.
  Qel::Ptr<ResetHistorySm> resetHistorySmIs(
      const Qel::Ptr<Redundancy::RedundancyStatus const>& redundancyStatus,
      const Qel::Ptr<GeneralMib>& generalMib,
      const Qel::Ptr<System::ResetCauseHistory const>& curCellResetHistory,
      const Qel::Ptr<Kavra::EntityManager>& entityManager, Qel::String cellType);
  // Removes, switches off (after the notifiees heard) and returns the machine, or null.
  Qel::Ptr<ResetHistorySm> resetHistorySmDel();

  const Qel::TypeNode* fwkType() const override;
  static Qel::TypeDescription typeDescription();

 private:
  void resetHistorySmNotify();
  void takeAwayAfterAnError();

  const Qel::Ptr<Redundancy::RedundancyStatus> redundancyStatus_;
  const Qel::Ptr<GeneralMib> generalMib_;
  const Qel::Ptr<System::ResetCauseHistory const> curCellResetHistory_;
  const Qel::Ptr<Kavra::EntityManager> entityManager_;
  const Qel::String cellType_;
  Qel::Ptr<ResetHistorySm> resetHistorySm_;
};

}  // namespace MiscSnmp::Agent
