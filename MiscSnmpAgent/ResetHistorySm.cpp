#include "MiscSnmpAgent/ResetHistorySm.h"

#include "Cell/Cell.h"
#include "MiscSnmpAgent/MakeValid.h"
#include "MiscSnmpAgent/ModuleTrace.h"
#include "MiscSnmpAgent/PeerCell.h"
#include "Qel/ActivityManager.h"
#include "Qel/Assert.h"
#include "Qel/Format.h"

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
  return makeValid<ResetHistorySm>(redundancyStatus, generalMib, curCellResetHistory, entityManager,
                                   cellType);
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
  if (!slot) slot = Qel::make<SomeReactor>(entity, this);
  // Held, because each reaction may let go of the reactor again.
  const Qel::Ptr<SomeReactor> reactor = slot;
  // Runs the reaction for a new reactor, too, which its construction did not.
  reactor->notifierIs(entity);
}

void ResetHistorySm::redundancyStatusIs(
    const Qel::Ptr<Redundancy::RedundancyStatus const>& status) {
  if (status == redundancyStatus()) return;
  if (!status) {
    reactorDel(redundancyStatus_);
    return;
  }
  reactorIs(redundancyStatus_, status);
}

Qel::Ptr<Redundancy::RedundancyStatus const> ResetHistorySm::redundancyStatusDel() {
  auto watched = redundancyStatus();
  reactorDel(redundancyStatus_);
  return watched;
}

void ResetHistorySm::curCellResetHistoryIs(
    const Qel::Ptr<System::ResetCauseHistory const>& history) {
  if (history == curCellResetHistory()) return;
  if (!history) {
    reactorDel(curCellResetHistory_);
    return;
  }
  reactorIs(curCellResetHistory_, history);
}

Qel::Ptr<System::ResetCauseHistory const> ResetHistorySm::curCellResetHistoryDel() {
  auto watched = curCellResetHistory();
  reactorDel(curCellResetHistory_);
  return watched;
}

void ResetHistorySm::peerCellResetHistoryIs(
    const Qel::Ptr<System::ResetCauseHistory const>& history) {
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
  if (auto trace = agentTrace(8, "handleInitialized")) {
    *trace << "void MiscSnmp::Agent::ResetHistorySm::handleInitialized() Enter: ";
  }
  deleteAllCellResetHistory();
  handleCurCellResetHistory();
  handleRedundancyProtocol();
}

void ResetHistorySm::handleRedundancyProtocol() {
  constexpr char kFunction[] = "handleRedundancyProtocol";
  constexpr char kSignature[] = "void MiscSnmp::Agent::ResetHistorySm::handleRedundancyProtocol()";
  const auto status = redundancyStatus();
  QEL_ASSERT(status);
  const Redundancy::RedundancyProtocol protocol = status->protocol();
  if (protocol == kProtocolWithPeerHistory) {
    const Qel::String rootPath;
    const Qel::String path = Qel::format("cell/%u/sys/reset/history", peerCellId());
    if (auto trace = agentTrace(8, kFunction)) {
      *trace << kSignature << " rootPath : " << rootPath << ", path : " << path;
    }
    peerCellResetHistoryStatusDirMounterDel();
    const Qel::Ptr<Qel::Clock const> clock = Qel::activityManager()->clock();
    peerCellResetHistoryStatusDirMounterIs(rootPath, path, entityManager_, clock,
                                           Qel::Ptr<ResetHistorySm>(this))
        ->start();
    return;
  }
  if (auto trace = agentTrace(8, kFunction)) {
    *trace << kSignature << " Deleting peerCell reset history : " << protocol;
  }
  deletePeerCellResetInstanceSm();
  deletePeerCellResetHistory();
  // The mounter stays: only the next pass with a peer, or the end of this machine, drops it.
  peerCellResetHistoryIs(nullptr);
}

void ResetHistorySm::deleteRows(const char* signature, const char* function,
                                bool (*isOf)(U32 unitIndex)) {
  // The iterator holds its row, so its key outlives the removal and finds the next row.
  for (auto row = generalMib_->reloadCauseTable().iteratorConst(); row; ++row) {
    const ReloadCauseKey key = row.key();
    if (!isOf(key.unitIndex())) continue;
    if (auto trace = agentTrace(8, function)) {
      *trace << signature << " Deleting entry for cell unit : " << key.unitIndex()
             << ", causeIdx : " << key.causeIndex();
    }
    generalMib_->reloadCauseTableDel(key);
  }
}

void ResetHistorySm::deleteAllCellResetHistory() {
  deleteRows("void MiscSnmp::Agent::ResetHistorySm::deleteAllCellResetHistory()",
             "deleteAllCellResetHistory", [](U32) { return true; });
}

void ResetHistorySm::deleteCurCellResetHistory() {
  deleteRows("void MiscSnmp::Agent::ResetHistorySm::deleteCurCellResetHistory()",
             "deleteCurCellResetHistory",
             [](U32 unitIndex) { return unitIndex == Cell::cellId() || unitIndex == 0; });
}

void ResetHistorySm::deletePeerCellResetHistory() {
  deleteRows("void MiscSnmp::Agent::ResetHistorySm::deletePeerCellResetHistory()",
             "deletePeerCellResetHistory", [](U32 unitIndex) { return unitIndex == peerCellId(); });
}

void ResetHistorySm::hasNotificationActiveIs(bool active) {
  notificationActiveFlagIs(active);
  if (redundancyStatus_) redundancyStatus_->hasNotificationActiveIs(active);
  if (curCellResetHistory_) curCellResetHistory_->hasNotificationActiveIs(active);
  if (peerCellResetHistory_) peerCellResetHistory_->hasNotificationActiveIs(active);
  for (auto it = curCellResetInstanceSm_.iteratorConst(); it; ++it) {
    it->hasNotificationActiveIs(active);
  }
  for (auto it = peerCellResetInstanceSm_.iteratorConst(); it; ++it) {
    it->hasNotificationActiveIs(active);
  }
  if (const auto mounter = peerCellResetHistoryStatusDirMounter_) {
    mounter->hasNotificationActiveIs(active);
  }
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
