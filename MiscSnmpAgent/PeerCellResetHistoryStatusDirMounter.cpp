#include "MiscSnmpAgent/PeerCellResetHistoryStatusDirMounter.h"

#include "MiscSnmpAgent/ModuleTrace.h"
#include "MiscSnmpAgent/ResetHistorySm.h"
#include "Qel/Assert.h"
#include "Qel/Exception.h"
#include "Qel/MakeValid.h"
#include "Qel/OwnerInterface.h"
#include "System/ResetCauseHistory.h"

namespace MiscSnmp::Agent {

namespace {

constexpr char kType[] = "MiscSnmp::Agent::PeerCellResetHistoryStatusDirMounter";
constexpr char kEntityType[] = "System::ResetCauseHistory";
constexpr char kReadOnly[] = "r";

}  // namespace

PeerCellResetHistoryStatusDirMounter::PeerCellResetHistoryStatusDirMounter(
    const Qel::String& rootPath, const Qel::String& path,
    const Qel::Ptr<Kavra::EntityManager>& entityManager, const Qel::Ptr<Qel::Clock const>& clock,
    const Qel::Ptr<ResetHistorySm>& resetHistorySm)
    : Kavra::DirMounter(rootPath, path, kEntityType, kReadOnly, entityManager, clock),
      resetHistorySm_(resetHistorySm) {}

PeerCellResetHistoryStatusDirMounter::~PeerCellResetHistoryStatusDirMounter() {
  qelDoZombieReactors(true);
}

Qel::Ptr<PeerCellResetHistoryStatusDirMounter>
PeerCellResetHistoryStatusDirMounter::PeerCellResetHistoryStatusDirMounterIs(
    const Qel::String& rootPath, const Qel::String& path,
    const Qel::Ptr<Kavra::EntityManager>& entityManager, const Qel::Ptr<Qel::Clock const>& clock,
    const Qel::Ptr<ResetHistorySm>& resetHistorySm) {
  if (!resetHistorySm) Qel::throwRangeException("null ValidPtr");
  return Qel::makeValid<PeerCellResetHistoryStatusDirMounter>(rootPath, path, entityManager, clock,
                                                              resetHistorySm);
}

void PeerCellResetHistoryStatusDirMounter::handleComplete(const Qel::Ptr<Qel::Entity>& entity) {
  if (auto trace = agentTrace(1)) {
    *trace << "virtual void MiscSnmp::Agent::PeerCellResetHistoryStatusDirMounter::handleComplete("
              "const Ptr&)"
           << " mountPath : " << mountPath() << ", entity : " << entity;
  }
  const auto history = Qel::ptrCast<System::ResetCauseHistory const>(entity);
  QEL_ASSERT(resetHistorySm());
  const Qel::Ptr<ResetHistorySm> owner = resetHistorySm();
  owner->deletePeerCellResetInstanceSm();
  owner->peerCellResetHistoryIs(history);
}

void PeerCellResetHistoryStatusDirMounter::hasNotificationActiveIs(bool active) {
  if (active != hasNotificationActive()) Kavra::DirMounter::hasNotificationActiveIs(active);
}

Qel::OwnerInterface* PeerCellResetHistoryStatusDirMounter::qelOwner() const {
  return resetHistorySm_.get();
}

const Qel::TypeNode* PeerCellResetHistoryStatusDirMounter::fwkType() const {
  return Qel::typeNode(kType);
}

Qel::TypeDescription PeerCellResetHistoryStatusDirMounter::typeDescription() {
  const auto mounterOf = [](const Qel::PtrInterface& object) -> const auto& {
    return dynamic_cast<const PeerCellResetHistoryStatusDirMounter&>(object);
  };
  return {
      .name = kType,
      .attributes =
          {{"rootPath", [mounterOf](const auto& o) { return mounterOf(o).rootPath(); }},
           {"path", [mounterOf](const auto& o) { return mounterOf(o).path(); }},
           {"mountPath", [mounterOf](const auto& o) { return mounterOf(o).mountPath(); }},
           {"entityType", [mounterOf](const auto& o) { return mounterOf(o).entityType(); }},
           {"mountFlags", [mounterOf](const auto& o) { return mounterOf(o).mountFlags(); }},
           {"entityManager", [mounterOf](const auto& o) { return mounterOf(o).entityManager(); }},
           {"clock", [mounterOf](const auto& o) { return mounterOf(o).clock(); }},
           {"resetHistorySm",
            [mounterOf](const auto& o) { return mounterOf(o).resetHistorySm(); }}},
  };
}

}  // namespace MiscSnmp::Agent
