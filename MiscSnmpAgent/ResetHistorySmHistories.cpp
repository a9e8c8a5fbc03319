// The part of ResetHistorySm that turns the two cells' histories into rows of the table.
#include <initializer_list>

#include "Cell/Cell.h"
#include "MiscSnmp/GeneralMib.h"
#include "MiscSnmp/ReloadCauseKey.h"
#include "MiscSnmpAgent/ModuleTrace.h"
#include "MiscSnmpAgent/PeerCell.h"
#include "MiscSnmpAgent/ResetHistorySm.h"
#include "MiscSnmpAgent/ResetHistorySmTrace.h"
#include "Qel/Assert.h"
#include "Qel/Ptr.h"
#include "Qel/Types.h"
#include "System/ResetInstance.h"

namespace MiscSnmp::Agent {

namespace {

constexpr U32 kLatestReload = 0;
constexpr U32 kOwnUnit = 0;  // the own cell, whatever its id
constexpr char kSupervisor[] = "supervisor";

// Removes the rows for whose unit `isOf` holds, tracing each as the handler at `place`. Holds the
// model, because whoever hears of a row may end the state machine.
void deleteRows(const TracePlace& place, Qel::Ptr<GeneralMib> model, bool (*isOf)(U32 unitIndex)) {
  // The iterator holds its row, so its key outlives the removal and finds the next row.
  for (auto row = model->reloadCauseTable().iteratorConst(); row; ++row) {
    const ReloadCauseKey key = row.key();
    if (!isOf(key.unitIndex())) continue;
    traceHandler(place, "() Deleting entry for cell unit : ", key.unitIndex(),
                 ", causeIdx : ", key.causeIndex());
    model->reloadCauseTableDel(key);
  }
}

// Writes a row for each cause of `reload` under each of `units`.
void writeRows(Qel::Ptr<GeneralMib> model, std::initializer_list<U32> units,
               const Qel::Ptr<System::ResetInstance const>& reload) {
  U32 causeIndex = 1;
  for (auto cause = reload->causeQ().iteratorConst(); cause; ++cause, ++causeIndex) {
    for (const U32 unit : units) {
      model->reloadCauseTableIs(ReloadCauseKey(unit, kLatestReload, causeIndex), reload);
    }
  }
}

}  // namespace

void ResetHistorySm::deleteAllCellResetHistory() {
  deleteRows(8, generalMib_, [](U32) { return true; });
}

void ResetHistorySm::deleteCurCellResetHistory() {
  deleteRows(8, generalMib_, [](U32 unit) { return unit == Cell::cellId() || unit == kOwnUnit; });
}

void ResetHistorySm::deletePeerCellResetHistory() {
  deleteRows(8, generalMib_, [](U32 unit) { return unit == peerCellId(); });
}

void ResetHistorySm::handleCurCellResetHistory() {
  const auto history = curCellResetHistory();
  QEL_ASSERT(history);
  const Qel::Ptr<System::ResetInstance> resetInstance = history->rebootHistory(kLatestReload);
  traceHandler(1, "() resetInstance : ", resetInstance);
  if (!resetInstance) return;
  if (cellType_ == kSupervisor) {
    writeRows(generalMib_, {kOwnUnit, Cell::cellId()}, resetInstance);
  } else {
    writeRows(generalMib_, {kOwnUnit}, resetInstance);
  }
}

void ResetHistorySm::handlePeerCellResetHistory() {
  const Qel::Ptr<ResetHistorySm> alive(this);
  const auto status = redundancyStatus();
  QEL_ASSERT(status);
  const bool capable = status->switchoverCapable();
  traceHandler(1, "() switchoverCapable : ", capable);
  if (!capable) {
    return traceHandler(1, "() Peer ReloadCauseAgent is still warming up: ", capable);
  }
  auto history = peerCellResetHistory();
  if (!history) return traceHandler(1, "() peerCellResetHistory : ", history);
  if (!history->rebootHistory(kLatestReload)) {
    return traceHandler(1, "()Last ResetHistory not available");
  }
  deletePeerCellResetHistory();
  // Whoever heard of the removed rows may have changed or replaced the history.
  history = peerCellResetHistory();
  const auto resetInstance = history ? history->rebootHistory(kLatestReload) : nullptr;
  traceHandler(1, "() resetInstance : ", resetInstance, ", peerCellResetHistory :", history);
  if (resetInstance) writeRows(generalMib_, {peerCellId()}, resetInstance);
}

void ResetHistorySm::handleCurCellResetHistoryUpdate() {
  const Qel::Ptr<ResetHistorySm> alive(this);
  traceHandler(8, "() Enter: ");
  const auto history = curCellResetHistory();
  if (!history) return;
  for (auto reload = history->rebootHistory().iteratorConst(); reload; ++reload) {
    handleCurCellResetHistoryUpdate(reload.key());
  }
  // The walk meets no absent entry, yet the machine of entry 0 goes with it.
  if (!history->rebootHistory(kLatestReload)) curCellResetInstanceSmDel(kLatestReload);
}

void ResetHistorySm::handleCurCellResetHistoryUpdate(U32 key) {
  traceHandler(8, "(U32) key : ", key);
  if (key != kLatestReload) return traceHandler(8, "(U32) Ignoring updates for key : ", key);
  const auto history = curCellResetHistory();
  QEL_ASSERT(history);
  const Qel::Ptr<System::ResetInstance> resetInstance = history->rebootHistory(kLatestReload);
  if (resetInstance) {
    curCellResetInstanceSmIs(kLatestReload, resetInstance, Qel::Ptr<ResetHistorySm>(this));
  } else {
    curCellResetInstanceSmDel(kLatestReload);
  }
}

void ResetHistorySm::handlePeerCellResetHistoryUpdate() {
  const Qel::Ptr<ResetHistorySm> alive(this);
  traceHandler(8, "() Enter: ");
  const auto history = peerCellResetHistory();
  if (!history) return;
  for (auto reload = history->rebootHistory().iteratorConst(); reload; ++reload) {
    handlePeerCellResetHistoryUpdate(reload.key());
  }
}

void ResetHistorySm::handlePeerCellResetHistoryUpdate(U32 key) {
  traceHandler(8, "(U32) key : ", key);
  if (key != kLatestReload) return traceHandler(8, "(U32) Ignoring updates for key : ", key);
  const auto history = peerCellResetHistory();
  if (!history) return;
  // A peer's machine ends with its mount or its protocol, never here.
  if (peerCellResetInstanceSm_[kLatestReload]) return;
  peerCellResetInstanceSmIs(kLatestReload, history->rebootHistory(kLatestReload),
                            Qel::Ptr<ResetHistorySm>(this));
}

}  // namespace MiscSnmp::Agent
