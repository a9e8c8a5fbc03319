// What ResetHistorySm holds: the instance machines of both cells and the mounter.
#include "MiscSnmpAgent/ResetHistorySm.h"
#include "Qel/Exception.h"
#include "Qel/Format.h"
#include "Qel/Strep.h"

namespace MiscSnmp::Agent {

namespace {

[[noreturn]] void throwInUse(const char* attribute, const void* wanted, const void* present,
                             const char* type) {
  Qel::throwNameInUseException(Qel::format(
      "Reinstantiating the pointer interface where constructor parameter attribute %s has a "
      "different value of %s than the current value of %s not allowed",
      attribute, Qel::valueToStrepOfRawPtr(wanted, type),
      Qel::valueToStrepOfRawPtr(present, type)));
}

}  // namespace

template <class Sm, class Make>
Qel::Ptr<Sm> ResetHistorySm::resetInstanceSmIs(
    Qel::HashMap<Sm, U32>& machines, U32 key,
    const Qel::Ptr<System::ResetInstance const>& resetInstance,
    const Qel::Ptr<ResetHistorySm>& resetHistorySm, Make make) {
  if (!resetHistorySm) Qel::throwRangeException("null ValidPtr");
  Qel::Ptr<Sm> created;
  if (!machines[key]) created = make(key, resetInstance, resetHistorySm);
  // Looked up again: making a machine rebuilds rows, and whoever hears of that may have made one.
  if (Qel::Ptr<Sm> present = machines[key]) {
    if (present->resetInstance() != resetInstance) {
      throwInUse("_resetInstance", resetInstance.get(), present->resetInstance().get(),
                 "System::ResetInstance");
    }
    if (present->resetHistorySm() != resetHistorySm) {
      throwInUse("_resetHistorySm", resetHistorySm.get(), present->resetHistorySm().get(),
                 "MiscSnmp::Agent::ResetHistorySm");
    }
    return present;
  }
  created->hasNotificationActiveIs(hasNotificationActive());
  machines.valueIs(key, created);
  if (resetHistorySm.get() == this) qelChildIs(*created);
  return created;
}

template <class Sm>
Qel::Ptr<Sm> ResetHistorySm::resetInstanceSmDel(Qel::HashMap<Sm, U32>& machines, U32 key) {
  Qel::Ptr<Sm> removed = machines.valueDel(key);
  if (removed) qelChildDel(*removed);
  return removed;
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
  for (auto it = curCellResetInstanceSm_.iteratorConst(); it; ++it) {
    curCellResetInstanceSmDel(it.key());
  }
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
  for (auto it = peerCellResetInstanceSm_.iteratorConst(); it; ++it) {
    peerCellResetInstanceSmDel(it.key());
  }
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
  peerCellResetHistoryStatusDirMounterDel();
  mounter = created;
  if (resetHistorySm.get() == this) qelChildIs(*created);
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
  for (auto it = peerCellResetInstanceSm_.iteratorConst(); it; ++it) {
    peerCellResetInstanceSmDel(it.key());
  }
}

}  // namespace MiscSnmp::Agent
