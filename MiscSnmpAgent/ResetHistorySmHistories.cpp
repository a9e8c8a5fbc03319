// The part of ResetHistorySm that turns the two cells' histories into rows of the table.
#include "Cell/Cell.h"
#include "MiscSnmpAgent/ModuleTrace.h"
#include "MiscSnmpAgent/PeerCell.h"
#include "MiscSnmpAgent/ResetHistorySm.h"
#include "Qel/Assert.h"

namespace MiscSnmp::Agent {

namespace {

constexpr U32 kLatestReload = 0;
constexpr U32 kOwnUnit = 0;  // the own cell, whatever its id
constexpr char kSupervisor[] = "supervisor";

}  // namespace

void ResetHistorySm::handleCurCellResetHistory() {
  const auto history = curCellResetHistory();
  QEL_ASSERT(history);
  const Qel::Ptr<System::ResetInstance> resetInstance = history->rebootHistory(kLatestReload);
  if (auto trace = agentTrace(1, "handleCurCellResetHistory")) {
    *trace << "void MiscSnmp::Agent::ResetHistorySm::handleCurCellResetHistory()"
           << " resetInstance : " << resetInstance;
  }
  if (!resetInstance) return;
  if (cellType_ == kSupervisor) {
    writeRows({kOwnUnit, Cell::cellId()}, resetInstance);
  } else {
    writeRows({kOwnUnit}, resetInstance);
  }
}

void ResetHistorySm::handlePeerCellResetHistory() {
  constexpr char kFunction[] = "handlePeerCellResetHistory";
  constexpr char kSignature[] =
      "void MiscSnmp::Agent::ResetHistorySm::handlePeerCellResetHistory()";
  const auto status = redundancyStatus();
  QEL_ASSERT(status);
  const bool capable = status->switchoverCapable();
  if (auto trace = agentTrace(1, kFunction)) {
    *trace << kSignature << " switchoverCapable : " << capable;
  }
  if (!capable) {
    if (auto trace = agentTrace(1, kFunction)) {
      *trace << kSignature << " Peer ReloadCauseAgent is still warming up: " << capable;
    }
    return;
  }
  auto history = peerCellResetHistory();
  if (!history) {
    if (auto trace = agentTrace(1, kFunction)) {
      *trace << kSignature << " peerCellResetHistory : " << history;
    }
    return;
  }
  if (!history->rebootHistory(kLatestReload)) {
    if (auto trace = agentTrace(1, kFunction)) {
      *trace << kSignature << "Last ResetHistory not available";
    }
    return;
  }
  deletePeerCellResetHistory();
  // Whoever heard of the removed rows may have changed or replaced the history.
  history = peerCellResetHistory();
  const auto resetInstance = history ? history->rebootHistory(kLatestReload) : nullptr;
  if (auto trace = agentTrace(1, kFunction)) {
    *trace << kSignature << " resetInstance : " << resetInstance
           << ", peerCellResetHistory :" << history;
  }
  if (resetInstance) writeRows({peerCellId()}, resetInstance);
}

void ResetHistorySm::writeRows(std::initializer_list<U32> units,
                               const Qel::Ptr<System::ResetInstance const>& instance) {
  U32 causeIndex = 1;
  for (auto cause = instance->causeQ().iteratorConst(); cause; ++cause, ++causeIndex) {
    for (const U32 unit : units) {
      generalMib_->reloadCauseTableIs(ReloadCauseKey(unit, kLatestReload, causeIndex), instance);
    }
  }
}

void ResetHistorySm::handleCurCellResetHistoryUpdate() {
  if (auto trace = agentTrace(8, "handleCurCellResetHistoryUpdate")) {
    *trace << "void MiscSnmp::Agent::ResetHistorySm::handleCurCellResetHistoryUpdate() Enter: ";
  }
  const auto history = curCellResetHistory();
  if (!history) return;
  for (auto reload = history->rebootHistory().iteratorConst(); reload; ++reload) {
    handleCurCellResetHistoryUpdate(reload.key());
  }
  // The walk meets no absent entry, yet the machine of entry 0 goes with it.
  if (!history->rebootHistory(kLatestReload)) curCellResetInstanceSmDel(kLatestReload);
}

void ResetHistorySm::handleCurCellResetHistoryUpdate(U32 key) {
  constexpr char kFunction[] = "handleCurCellResetHistoryUpdate";
  constexpr char kSignature[] =
      "void MiscSnmp::Agent::ResetHistorySm::handleCurCellResetHistoryUpdate(U32)";
  if (auto trace = agentTrace(8, kFunction)) *trace << kSignature << " key : " << key;
  if (key != kLatestReload) {
    if (auto trace = agentTrace(8, kFunction)) {
      *trace << kSignature << " Ignoring updates for key : " << key;
    }
    return;
  }
  const auto history = curCellResetHistory();
  QEL_ASSERT(history);
  const Qel::Ptr<System::ResetInstance> resetInstance = history->rebootHistory(kLatestReload);
  if (!resetInstance) {
    curCellResetInstanceSmDel(kLatestReload);
    return;
  }
  curCellResetInstanceSmIs(kLatestReload, resetInstance, Qel::Ptr<ResetHistorySm>(this));
}

void ResetHistorySm::handlePeerCellResetHistoryUpdate() {
  if (auto trace = agentTrace(8, "handlePeerCellResetHistoryUpdate")) {
    *trace << "void MiscSnmp::Agent::ResetHistorySm::handlePeerCellResetHistoryUpdate() Enter: ";
  }
  const auto history = peerCellResetHistory();
  if (!history) return;
  for (auto reload = history->rebootHistory().iteratorConst(); reload; ++reload) {
    handlePeerCellResetHistoryUpdate(reload.key());
  }
}

void ResetHistorySm::handlePeerCellResetHistoryUpdate(U32 key) {
  constexpr char kFunction[] = "handlePeerCellResetHistoryUpdate";
  constexpr char kSignature[] =
      "void MiscSnmp::Agent::ResetHistorySm::handlePeerCellResetHistoryUpdate(U32)";
  if (auto trace = agentTrace(8, kFunction)) *trace << kSignature << " key : " << key;
  if (key != kLatestReload) {
    if (auto trace = agentTrace(8, kFunction)) {
      *trace << kSignature << " Ignoring updates for key : " << key;
    }
    return;
  }
  const auto history = peerCellResetHistory();
  if (!history) return;
  // A peer's machine ends with its mount or its protocol, never here.
  if (peerCellResetInstanceSm_[kLatestReload]) return;
  peerCellResetInstanceSmIs(kLatestReload, history->rebootHistory(kLatestReload),
                            Qel::Ptr<ResetHistorySm>(this));
}

}  // namespace MiscSnmp::Agent
