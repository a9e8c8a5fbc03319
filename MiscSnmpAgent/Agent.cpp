#include "MiscSnmpAgent/Agent.h"

#include <utility>

#include "MiscSnmpAgent/AgentArguments.h"
#include "Qel/FirstError.h"
#include "Qel/GenericValue.h"

namespace MiscSnmp::Agent {

namespace {

constexpr char kType[] = "MiscSnmp::Agent::Agent";

const Agent& agentOf(const Qel::PtrInterface& object) { return dynamic_cast<const Agent&>(object); }

Agent& agentOf(Qel::PtrInterface& object) { return dynamic_cast<Agent&>(object); }

}  // namespace

void Agent::NotifieeConst::notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) {
  Qel::Entity::NotifieeConst::notifierIs(Qel::ptrCast<Agent const>(notifier));
}

Agent::Agent(const Qel::Name& name, const Qel::Ptr<Redundancy::RedundancyStatus>& redundancyStatus,
             const Qel::Ptr<GeneralMib>& generalMib,
             const Qel::Ptr<System::ResetCauseHistory const>& curCellResetHistory,
             const Qel::Ptr<Kavra::EntityManager>& entityManager, const Qel::String& cellType)
    : Qel::Entity(name),
      redundancyStatus_(redundancyStatus),
      generalMib_(generalMib),
      curCellResetHistory_(curCellResetHistory),
      entityManager_(entityManager),
      cellType_(cellType) {
  resetHistorySmIs(redundancyStatus_, generalMib_, curCellResetHistory_, entityManager_, cellType_);
}

Agent::~Agent() {
  resetHistorySmDel();
  notifieesDelAll();
  // Whoever heard of it may have set another one.
  resetHistorySmDel();
}

Qel::Ptr<ResetHistorySm> Agent::resetHistorySmIs(
    const Qel::Ptr<Redundancy::RedundancyStatus const>& redundancyStatus,
    const Qel::Ptr<GeneralMib>& generalMib,
    const Qel::Ptr<System::ResetCauseHistory const>& curCellResetHistory,
    const Qel::Ptr<Kavra::EntityManager>& entityManager, Qel::String cellType) {
  const Qel::Ptr<Agent> alive(this);
  if (resetHistorySm_ && resetHistorySm_->redundancyStatus() == redundancyStatus &&
      resetHistorySm_->generalMib() == generalMib &&
      resetHistorySm_->curCellResetHistory() == curCellResetHistory &&
      resetHistorySm_->entityManager() == entityManager &&
      resetHistorySm_->cellType() == cellType) {
    return resetHistorySm_;
  }
  auto created = ResetHistorySm::ResetHistorySmIs(redundancyStatus, generalMib, curCellResetHistory,
                                                  entityManager, cellType);
  resetHistorySm_ = created;
  try {
    resetHistorySmNotify();
    // A notifiee may have replaced it: only the machine that is still held is switched on.
    if (resetHistorySm_ == created) created->hasNotificationActiveIs(true);
  } catch (...) {
    // Left in its place it would pass for one that follows the histories.
    if (resetHistorySm_ == created) takeAwayAfterAnError();
    throw;
  }
  return created;
}

Qel::Ptr<ResetHistorySm> Agent::resetHistorySmDel() {
  if (!resetHistorySm_) return nullptr;
  auto removed = std::exchange(resetHistorySm_, nullptr);
  Qel::FirstError error;
  error.keepOf([this] { resetHistorySmNotify(); });
  // It is removed all the same, and reacts to nothing more.
  removed->hasNotificationActiveIs(false);
  error.raise();
  return removed;
}

void Agent::takeAwayAfterAnError() {
  try {
    resetHistorySmDel();
  } catch (...) {
    // The first error is the one to tell of.
  }
}

void Agent::resetHistorySmNotify() {
  notify<NotifieeConst>([](NotifieeConst& notifiee) { notifiee.onResetHistorySm(); });
}

const Qel::TypeNode* Agent::fwkType() const { return Qel::typeNode(kType); }

Qel::TypeDescription Agent::typeDescription() {
  return {
      .name = kType,
      .attributes =
          {{"name", [](const auto& o) { return agentOf(o).name(); }},
           {"redundancyStatus", [](const auto& o) { return agentOf(o).redundancyStatus(); }},
           {"generalMib", [](const auto& o) { return agentOf(o).generalMib(); }},
           {"curCellResetHistory", [](const auto& o) { return agentOf(o).curCellResetHistory(); }},
           {"entityManager", [](const auto& o) { return agentOf(o).entityManager(); }},
           {"cellType", [](const auto& o) { return agentOf(o).cellType(); }},
           {"resetHistorySm", [](const auto& o) { return agentOf(o).resetHistorySm(); },
            [](Qel::PtrInterface& o, const Qel::GenericArgs& args) {
              const auto unwrapped = agentArguments<Redundancy::RedundancyStatus const>(args);
              return Qel::GenericValue(agentOf(o).resetHistorySmIs(
                  unwrapped.redundancyStatus, unwrapped.generalMib, unwrapped.curCellResetHistory,
                  unwrapped.entityManager, unwrapped.cellType));
            },
            [](Qel::PtrInterface& o) {
              return Qel::GenericValue(agentOf(o).resetHistorySmDel());
            }}},
  };
}

}  // namespace MiscSnmp::Agent
