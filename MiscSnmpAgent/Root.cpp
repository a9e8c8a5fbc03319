#include "MiscSnmpAgent/Root.h"

#include <utility>

#include "MiscSnmpAgent/AgentArguments.h"
#include "Qel/Exception.h"
#include "Qel/GenericValue.h"
#include "Qel/MakeValid.h"

namespace MiscSnmp::Agent {

namespace {

constexpr char kType[] = "MiscSnmp::Agent::Root";
constexpr char kAgentName[] = "MiscSnmpAgent";
constexpr char kAgentAttribute[] = "agent";

const Root& rootOf(const Qel::PtrInterface& object) { return dynamic_cast<const Root&>(object); }

Root& rootOf(Qel::PtrInterface& object) { return dynamic_cast<Root&>(object); }

}  // namespace

void Root::NotifieeConst::notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) {
  Qel::Entity::NotifieeConst::notifierIs(Qel::ptrCast<Root const>(notifier));
}

Root::~Root() {
  agentDel();
  notifieesDelAll();
  // Whoever heard of it may have set another one.
  agentDel();
}

Qel::Ptr<Agent> Root::agentIs(const Qel::Ptr<Redundancy::RedundancyStatus>& redundancyStatus,
                              const Qel::Ptr<GeneralMib>& generalMib,
                              const Qel::Ptr<System::ResetCauseHistory const>& curCellResetHistory,
                              const Qel::Ptr<Kavra::EntityManager>& entityManager,
                              Qel::String cellType) {
  const Qel::Ptr<Root> alive(this);
  if (agent_ && agent_->redundancyStatus() == redundancyStatus &&
      agent_->generalMib() == generalMib && agent_->curCellResetHistory() == curCellResetHistory &&
      agent_->entityManager() == entityManager && agent_->cellType() == cellType) {
    return agent_;
  }
  agentDetach();
  auto created = Qel::makeValid<Agent>(kAgentName, redundancyStatus, generalMib,
                                       curCellResetHistory, entityManager, cellType);
  // Again: whoever heard of its rows may have set another one.
  agentDetach();
  created->parentIs(this, kAgentAttribute);
  agent_ = created;
  agentNotify();
  return created;
}

Qel::Ptr<Agent> Root::agentDel() {
  if (!agent_) return nullptr;
  auto removed = std::exchange(agent_, nullptr);
  removed->parentIs(nullptr, Qel::String());
  agentNotify();
  return removed;
}

void Root::agentDetach() {
  if (agent_) agent_->parentIs(nullptr, Qel::String());
}

void Root::agentNotify() {
  notify<NotifieeConst>([](NotifieeConst& notifiee) { notifiee.onAgent(); });
}

const Qel::TypeNode* Root::fwkType() const { return Qel::typeNode(kType); }

Qel::TypeDescription Root::typeDescription() {
  return {
      .name = kType,
      .attributes = {{"name", [](const auto& o) { return rootOf(o).name(); }},
                     {kAgentAttribute, [](const auto& o) { return rootOf(o).agent(); },
                      [](Qel::PtrInterface& o, const Qel::GenericArgs& args) {
                        const auto unwrapped = agentArguments<Redundancy::RedundancyStatus>(args);
                        return Qel::GenericValue(
                            rootOf(o).agentIs(unwrapped.redundancyStatus, unwrapped.generalMib,
                                              unwrapped.curCellResetHistory,
                                              unwrapped.entityManager, unwrapped.cellType));
                      },
                      [](Qel::PtrInterface& o) {
                        return Qel::GenericValue(rootOf(o).agentDel());
                      }}},
      .factory =
          [](const Qel::GenericArgs& args) {
            if (args.size() != 1) Qel::throwRangeException("expected the name alone");
            return rootFactory(args[0].toName());
          },
      .newEntityForDir = [](Qel::Dir&, const Qel::Name& name) { return rootFactory(name); },
  };
}

Qel::Ptr<Root> rootFactory(Qel::Name name) { return Qel::makeValid<Root>(name); }

}  // namespace MiscSnmp::Agent
