#pragma once

#include "Kavra/EntityManager.h"
#include "MiscSnmp/GeneralMib.h"
#include "MiscSnmpAgent/Agent.h"
#include "Qel/Entity.h"
#include "Qel/Name.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/String.h"
#include "Qel/TypeNode.h"
#include "Redundancy/RedundancyStatus.h"
#include "System/ResetCauseHistory.h"

namespace MiscSnmp::Agent {

// Top of the reset-history agent and the hosting process's handle on it: found by type in the
// registry, made by name, driven through its `agent` attribute. Owns at most one Agent, whose
// parent it is; no agent outlives it with it as its parent.
//
// An agent may be replaced while its machine rebuilds rows, by whoever hears of one of them. That
// rebuild then goes on to its end under the old inputs: it deletes rows of the new agent and puts
// its own in their place, which raises NameInUseException where the new agent shows another reload.
// The new agent makes the rows of the cell right again at the next change of it.
class Root final : public Qel::Entity {
 public:
  class NotifieeConst : public Qel::Entity::NotifieeConst {
   public:
    using Qel::Entity::NotifieeConst::NotifieeConst;
    void notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) override;
    // The agent was set or removed.
    virtual void onAgent() {}
  };

  explicit Root(const Qel::Name& name) : Qel::Entity(name) {}
  ~Root() override;

  const Qel::Ptr<Agent>& agent() const noexcept { return agent_; }
  // An agent for these inputs: the present one when it has them, else a new one in its place. The
  // old one loses its parent and lives on only while others hold it. An error while the new one is
  // made passes to the caller; nothing is stored and nobody notified then. Of calls inside this one
  // the outermost has the last word.
  Qel::Ptr<Agent> agentIs(const Qel::Ptr<Redundancy::RedundancyStatus>& redundancyStatus,
                          const Qel::Ptr<GeneralMib>& generalMib,
                          const Qel::Ptr<System::ResetCauseHistory const>& curCellResetHistory,
                          const Qel::Ptr<Kavra::EntityManager>& entityManager,
                          Qel::String cellType);
  // Removes and returns the agent, or null.
  Qel::Ptr<Agent> agentDel();

  const Qel::TypeNode* fwkType() const override;
  static Qel::TypeDescription typeDescription();

 private:
  void agentDetach();
  void agentNotify();

  Qel::Ptr<Agent> agent_;
};

// A new root without agent.
Qel::Ptr<Root> rootFactory(Qel::Name name);

}  // namespace MiscSnmp::Agent
