#include "MiscSnmpAgent/ResetHistorySm.h"

#include "MiscSnmpAgent/PeerCell.h"
#include "MiscSnmpAgent/ResetHistorySmTrace.h"
#include "Qel/ActivityManager.h"
#include "Qel/Assert.h"
#include "Qel/Format.h"
#include "Qel/MakeValid.h"
#include "Redundancy/RedundancyProtocol.h"

namespace MiscSnmp::Agent {

namespace {

constexpr char kType[] = "MiscSnmp::Agent::ResetHistorySm";
// The protocol under which the peer publishes a history that can be reached.
constexpr auto kProtocolWithPeerHistory = Redundancy::RedundancyProtocol{3};

}  // namespace

ResetHistorySm::ResetHistorySm(const Qel::Ptr<Redundancy::RedundancyStatus const>& redundancyStatus,
                               const Qel::Ptr<GeneralMib>& generalMib,
                               const Qel::Ptr<System::ResetCauseHistory const>& curCellResetHistory,
                               const Qel::Ptr<Kavra::EntityManager>& entityManager,
                               const Qel::String& cellType)
    : generalMib_(generalMib), entityManager_(entityManager), cellType_(cellType) {
  if (redundancyStatus) {
    redundancyStatus_ = Qel::make<QelRedundancyStatus>(redundancyStatus, this);
  }
  if (curCellResetHistory) {
    curCellResetHistory_ = Qel::make<QelCurCellResetHistory>(curCellResetHistory, this);
  }
  try {
    handleInitialized();
  } catch (...) {
    tearDown();
    throw;
  }
}

ResetHistorySm::~ResetHistorySm() { tearDown(); }

void ResetHistorySm::tearDown() {
  ResetHistorySm::qelDoZombieReactors(true);
  if (redundancyStatus_) redundancyStatus_->ownerIs(nullptr);
  if (curCellResetHistory_) curCellResetHistory_->ownerIs(nullptr);
  if (peerCellResetHistory_) peerCellResetHistory_->ownerIs(nullptr);
  curCellResetInstanceSmDelAll();
  peerCellResetInstanceSmDelAll();
  peerCellResetHistoryStatusDirMounterDel();
  // The histories go before the entity manager and the model; the members' order sees to the rest.
  peerCellResetHistory_ = nullptr;
  curCellResetHistory_ = nullptr;
}

Qel::Ptr<ResetHistorySm> ResetHistorySm::ResetHistorySmIs(
    const Qel::Ptr<Redundancy::RedundancyStatus const>& redundancyStatus,
    const Qel::Ptr<GeneralMib>& generalMib,
    const Qel::Ptr<System::ResetCauseHistory const>& curCellResetHistory,
    const Qel::Ptr<Kavra::EntityManager>& entityManager, const Qel::String& cellType) {
  return Qel::makeValid<ResetHistorySm>(redundancyStatus, generalMib, curCellResetHistory,
                                        entityManager, cellType);
}

Qel::Ptr<Redundancy::RedundancyStatus const> ResetHistorySm::redundancyStatus() const {
  return redundancyStatus_ ? redundancyStatus_->redundancyStatus() : nullptr;
}

Qel::Ptr<System::ResetCauseHistory const> ResetHistorySm::curCellResetHistory() const {
  return curCellResetHistory_ ? curCellResetHistory_->resetCauseHistory() : nullptr;
}

Qel::Ptr<System::ResetCauseHistory const> ResetHistorySm::peerCellResetHistory() const {
  return peerCellResetHistory_ ? peerCellResetHistory_->resetCauseHistory() : nullptr;
}

template <class SomeReactor, class Entity>
void ResetHistorySm::reactorIs(Qel::Ptr<SomeReactor>& slot, const Qel::Ptr<Entity const>& entity) {
  if (entity == (slot ? slot->notifier() : nullptr)) return;
  if (!entity) return reactorDel(slot);
  if (!slot) slot = Qel::make<SomeReactor>(entity, this);
  // Held, because each reaction may let go of the reactor again.
  const Qel::Ptr<SomeReactor> reactor = slot;
  // Runs the reaction for a new reactor, too, which its construction did not.
  reactor->notifierIs(entity);
}

void ResetHistorySm::redundancyStatusIs(
    const Qel::Ptr<Redundancy::RedundancyStatus const>& status) {
  reactorIs(redundancyStatus_, status);
}

Qel::Ptr<Redundancy::RedundancyStatus const> ResetHistorySm::redundancyStatusDel() {
  auto watched = redundancyStatus();
  reactorDel(redundancyStatus_);
  return watched;
}

void ResetHistorySm::curCellResetHistoryIs(
    const Qel::Ptr<System::ResetCauseHistory const>& history) {
  reactorIs(curCellResetHistory_, history);
}

Qel::Ptr<System::ResetCauseHistory const> ResetHistorySm::curCellResetHistoryDel() {
  auto watched = curCellResetHistory();
  reactorDel(curCellResetHistory_);
  return watched;
}

void ResetHistorySm::peerCellResetHistoryIs(
    const Qel::Ptr<System::ResetCauseHistory const>& history) {
  const Qel::Ptr<ResetHistorySm> alive(this);
  if (history == peerCellResetHistory()) return;
  Qel::Ptr<QelPeerCellResetHistory> dropped;
  if (history) {
    reactorIs(peerCellResetHistory_, history);
  } else {
    dropped = reactorTake(peerCellResetHistory_);
  }
  handlePeerCellResetHistory();
  reactorDel(dropped);
}

Qel::Ptr<System::ResetCauseHistory const> ResetHistorySm::peerCellResetHistoryDel() {
  auto watched = peerCellResetHistory();
  reactorDel(peerCellResetHistory_);
  return watched;
}

void ResetHistorySm::handleInitialized() {
  const Qel::Ptr<ResetHistorySm> alive(this);
  traceHandler(8, "() Enter: ");
  deleteAllCellResetHistory();
  handleCurCellResetHistory();
  handleRedundancyProtocol();
}

void ResetHistorySm::handleRedundancyProtocol() {
  const Qel::Ptr<ResetHistorySm> alive(this);
  const auto status = redundancyStatus();
  QEL_ASSERT(status);
  const Redundancy::RedundancyProtocol protocol = status->protocol();
  if (protocol == kProtocolWithPeerHistory) {
    const Qel::String rootPath;
    const Qel::String path = Qel::format("cell/%u/sys/reset/history", peerCellId());
    traceHandler(8, "() rootPath : ", rootPath, ", path : ", path);
    peerCellResetHistoryStatusDirMounterDel();
    const Qel::Ptr<Qel::Clock const> clock = Qel::activityManager()->clock();
    peerCellResetHistoryStatusDirMounterIs(rootPath, path, entityManager_, clock, alive)->start();
    return;
  }
  traceHandler(8, "() Deleting peerCell reset history : ", protocol);
  deletePeerCellResetInstanceSm();
  deletePeerCellResetHistory();
  // The mounter stays: only the next pass with a peer, or the end of this machine, drops it.
  peerCellResetHistoryIs(nullptr);
}

void ResetHistorySm::hasNotificationActiveIs(bool active) {
  const Qel::Ptr<ResetHistorySm> alive(this);
  notificationActiveFlagIs(active);
  // The flag as it stands: a reaction may have switched this machine. Each is held, because its
  // reaction may let go of it.
  const auto handOn = [this](auto held) {
    if (held) held->hasNotificationActiveIs(hasNotificationActive());
  };
  handOn(redundancyStatus_);
  handOn(curCellResetHistory_);
  handOn(peerCellResetHistory_);
  for (auto it = curCellResetInstanceSm_.iteratorConst(); it; ++it) handOn(it.ptr());
  for (auto it = peerCellResetInstanceSm_.iteratorConst(); it; ++it) handOn(it.ptr());
  handOn(peerCellResetHistoryStatusDirMounter_);
}

void ResetHistorySm::qelDoZombieReactors(bool zombie) {
  if (zombie == isMarkedForDeletion()) return;
  if (redundancyStatus_) redundancyStatus_->qelDoZombieReactors(zombie);
  if (curCellResetHistory_) curCellResetHistory_->qelDoZombieReactors(zombie);
  if (peerCellResetHistory_) peerCellResetHistory_->qelDoZombieReactors(zombie);
  markedForDeletionFlagIs(zombie);
}

const Qel::TypeNode* ResetHistorySm::fwkType() const { return Qel::typeNode(kType); }

Qel::TypeDescription ResetHistorySm::typeDescription() {
  const auto smOf = [](const Qel::PtrInterface& object) -> const auto& {
    return dynamic_cast<const ResetHistorySm&>(object);
  };
  return {
      .name = kType,
      .attributes =
          {{"redundancyStatus", [smOf](const auto& o) { return smOf(o).redundancyStatus(); }},
           {"generalMib", [smOf](const auto& o) { return smOf(o).generalMib(); }},
           {"curCellResetHistory", [smOf](const auto& o) { return smOf(o).curCellResetHistory(); }},
           {"entityManager", [smOf](const auto& o) { return smOf(o).entityManager(); }},
           {"cellType", [smOf](const auto& o) { return smOf(o).cellType(); }},
           {"peerCellResetHistory",
            [smOf](const auto& o) { return smOf(o).peerCellResetHistory(); }},
           {"peerCellResetHistoryStatusDirMounter",
            [smOf](const auto& o) { return smOf(o).peerCellResetHistoryStatusDirMounter(); }}},
  };
}

}  // namespace MiscSnmp::Agent
