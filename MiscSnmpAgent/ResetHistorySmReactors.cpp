// The nested reactors of ResetHistorySm: what each notification triggers.
#include "MiscSnmpAgent/Reactor.h"
#include "MiscSnmpAgent/ResetHistorySm.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/Types.h"

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

void ResetHistorySm::HistoryReactor::notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) {
  const Qel::Ptr<HistoryReactor> alive(this);
  Reactor::notifierIs(notifier);
  isRegisteredNotifieeIs(true);
  if (resetCauseHistory()) react();
}

void ResetHistorySm::HistoryReactor::onRebootHistory(U32 /*key*/) { react(); }

void ResetHistorySm::HistoryReactor::onRebootHistoryqelImmediate() { react(); }

void ResetHistorySm::HistoryReactor::react() {
  if (const auto owner = live()) ((*owner).*update_)();
}

}  // namespace MiscSnmp::Agent
