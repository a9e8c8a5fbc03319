// What ResetHistorySm holds: the instance machines of both cells and the mounter.
#include <utility>

#include "Kavra/EntityManager.h"
#include "MiscSnmpAgent/CurCellResetInstanceSm.h"
#include "MiscSnmpAgent/PeerCellResetHistoryStatusDirMounter.h"
#include "MiscSnmpAgent/PeerCellResetInstanceSm.h"
#include "MiscSnmpAgent/ResetHistorySm.h"
#include "Qel/Clock.h"
#include "Qel/Exception.h"
#include "Qel/HashMap.h"
#include "Qel/Ptr.h"
#include "Qel/String.h"
#include "Qel/Types.h"
#include "System/ResetInstance.h"

namespace MiscSnmp::Agent {

template <class Sm, class Make>
Qel::Ptr<Sm> ResetHistorySm::resetInstanceSmIs(Qel::HashMap<Sm, U32>& machines, U32 key,
                                               Qel::Ptr<System::ResetInstance const> resetInstance,
                                               Qel::Ptr<ResetHistorySm> resetHistorySm, Make make) {
  const Qel::Ptr<ResetHistorySm> alive(this);
  if (!resetHistorySm) Qel::throwRangeException("null ValidPtr");
  Qel::Ptr<Sm> created;
  if (!machines[key]) created = make(key, resetInstance, resetHistorySm);
  // Looked up again: making a machine rebuilds rows, and whoever hears of that may have made one.
  if (Qel::Ptr<Sm> present = machines[key]) {
    if (present->resetInstance() != resetInstance) {
      Qel::throwReinstantiationException("_resetInstance", resetInstance.get(),
                                         present->resetInstance().get(), "System::ResetInstance");
    }
    if (present->resetHistorySm() != resetHistorySm) {
      Qel::throwReinstantiationException("_resetHistorySm", resetHistorySm.get(),
                                         present->resetHistorySm().get(),
                                         "MiscSnmp::Agent::ResetHistorySm");
    }
    return present;
  }
  created->hasNotificationActiveIs(hasNotificationActive());
  machines.valueIs(key, created);
  if (created->qelOwner() == this) qelChildIs(*created);
  return created;
}

template <class Sm>
Qel::Ptr<Sm> ResetHistorySm::resetInstanceSmDel(Qel::HashMap<Sm, U32>& machines, U32 key) {
  Qel::Ptr<Sm> removed = machines.valueDel(key);
  if (removed) qelChildDel(*removed);
  return removed;
}

template <class Sm>
void ResetHistorySm::resetInstanceSmDelAll(Qel::HashMap<Sm, U32>& machines) {
  const Qel::Ptr<ResetHistorySm> alive(this);
  for (auto it = machines.iteratorConst(); it; ++it) resetInstanceSmDel(machines, it.key());
}

Qel::Ptr<CurCellResetInstanceSm> ResetHistorySm::curCellResetInstanceSmIs(
    U32 key, const Qel::Ptr<System::ResetInstance const>& resetInstance,
    const Qel::Ptr<ResetHistorySm>& resetHistorySm) {
  return resetInstanceSmIs(curCellResetInstanceSm_, key, resetInstance, resetHistorySm,
                           &CurCellResetInstanceSm::CurCellResetInstanceSmIs);
}

Qel::Ptr<CurCellResetInstanceSm> ResetHistorySm::curCellResetInstanceSmDel(U32 key) {
  return resetInstanceSmDel(curCellResetInstanceSm_, key);
}

void ResetHistorySm::curCellResetInstanceSmDelAll() {
  resetInstanceSmDelAll(curCellResetInstanceSm_);
}

Qel::Ptr<PeerCellResetInstanceSm> ResetHistorySm::peerCellResetInstanceSmIs(
    U32 key, const Qel::Ptr<System::ResetInstance const>& resetInstance,
    const Qel::Ptr<ResetHistorySm>& resetHistorySm) {
  return resetInstanceSmIs(peerCellResetInstanceSm_, key, resetInstance, resetHistorySm,
                           &PeerCellResetInstanceSm::PeerCellResetInstanceSmIs);
}

Qel::Ptr<PeerCellResetInstanceSm> ResetHistorySm::peerCellResetInstanceSmDel(U32 key) {
  return resetInstanceSmDel(peerCellResetInstanceSm_, key);
}

void ResetHistorySm::peerCellResetInstanceSmDelAll() {
  resetInstanceSmDelAll(peerCellResetInstanceSm_);
}

Qel::Ptr<PeerCellResetHistoryStatusDirMounter>
ResetHistorySm::peerCellResetHistoryStatusDirMounterIs(
    const Qel::String& rootPath, const Qel::String& path,
    const Qel::Ptr<Kavra::EntityManager>& entityManager, const Qel::Ptr<Qel::Clock const>& clock,
    const Qel::Ptr<ResetHistorySm>& resetHistorySm) {
  auto& mounter = peerCellResetHistoryStatusDirMounter_;
  if (mounter && mounter->rootPath() == rootPath && mounter->path() == path) return mounter;
  auto created = PeerCellResetHistoryStatusDirMounter::PeerCellResetHistoryStatusDirMounterIs(
      rootPath, path, entityManager, clock, resetHistorySm);
  // Held to the end: whoever hears of its end finds the new one in its place.
  const auto replaced = peerCellResetHistoryStatusDirMounterDel();
  mounter = created;
  if (created->qelOwner() == this) qelChildIs(*created);
  created->hasNotificationActiveIs(true);
  return created;
}

Qel::Ptr<PeerCellResetHistoryStatusDirMounter>
ResetHistorySm::peerCellResetHistoryStatusDirMounterDel() {
  auto removed = std::exchange(peerCellResetHistoryStatusDirMounter_, nullptr);
  if (removed) {
    qelChildDel(*removed);
    removed->hasNotificationActiveIs(false);
  }
  return removed;
}

void ResetHistorySm::deletePeerCellResetInstanceSm() {
  resetInstanceSmDelAll(peerCellResetInstanceSm_);
}

}  // namespace MiscSnmp::Agent
