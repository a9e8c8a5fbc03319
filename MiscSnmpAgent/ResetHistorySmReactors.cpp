// The nested reactors of ResetHistorySm: what each notification triggers.
#include "MiscSnmpAgent/ResetHistorySm.h"

namespace MiscSnmp::Agent {

void ResetHistorySm::QelRedundancyStatus::notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) {
  const Qel::Ptr<QelRedundancyStatus> alive(this);
  Reactor::notifierIs(notifier);
  isRegisteredNotifieeIs(true);
  if (!redundancyStatus()) return;
  if (const auto owner = live()) owner->handleRedundancyProtocol();
  if (const auto owner = live()) owner->handlePeerCellResetHistory();
}

void ResetHistorySm::QelRedundancyStatus::onProtocol() {
  if (const auto owner = live()) owner->handleRedundancyProtocol();
}

void ResetHistorySm::QelRedundancyStatus::onSwitchoverCapable() {
  if (const auto owner = live()) owner->handlePeerCellResetHistory();
}

void ResetHistorySm::QelCurCellResetHistory::notifierIs(
    Qel::Ptr<Qel::PtrInterface const> notifier) {
  const Qel::Ptr<QelCurCellResetHistory> alive(this);
  Reactor::notifierIs(notifier);
  isRegisteredNotifieeIs(true);
  if (resetCauseHistory()) react();
}

void ResetHistorySm::QelCurCellResetHistory::onRebootHistory(U32 /*key*/) { react(); }

void ResetHistorySm::QelCurCellResetHistory::onRebootHistoryqelImmediate() { react(); }

void ResetHistorySm::QelCurCellResetHistory::react() {
  if (const auto owner = live()) owner->handleCurCellResetHistoryUpdate();
}

void ResetHistorySm::QelPeerCellResetHistory::notifierIs(
    Qel::Ptr<Qel::PtrInterface const> notifier) {
  const Qel::Ptr<QelPeerCellResetHistory> alive(this);
  Reactor::notifierIs(notifier);
  isRegisteredNotifieeIs(true);
  if (resetCauseHistory()) react();
}

void ResetHistorySm::QelPeerCellResetHistory::onRebootHistory(U32 /*key*/) { react(); }

void ResetHistorySm::QelPeerCellResetHistory::onRebootHistoryqelImmediate() { react(); }

void ResetHistorySm::QelPeerCellResetHistory::react() {
  if (const auto owner = live()) owner->handlePeerCellResetHistoryUpdate();
}

}  // namespace MiscSnmp::Agent
