#include "MiscSnmpAgent/PeerCellResetInstanceSm.h"

#include "MiscSnmpAgent/ResetHistorySm.h"
#include "Qel/MakeValid.h"

namespace MiscSnmp::Agent {

namespace {

constexpr char kType[] = "MiscSnmp::Agent::PeerCellResetInstanceSm";
constexpr char kUpdateFunction[] = "handlePeerCellResetInstanceUpdate";

}  // namespace

const ResetInstanceSm::Twin PeerCellResetInstanceSm::kTwin{
    "void MiscSnmp::Agent::PeerCellResetInstanceSm::handleInitialized() key : ",
    "void MiscSnmp::Agent::PeerCellResetInstanceSm::handlePeerCellResetInstanceUpdate() Enter ",
    kUpdateFunction, &ResetHistorySm::deletePeerCellResetHistory,
    &ResetHistorySm::handlePeerCellResetHistory};

PeerCellResetInstanceSm::PeerCellResetInstanceSm(
    U32 key, const Qel::Ptr<System::ResetInstance const>& resetInstance,
    const Qel::Ptr<ResetHistorySm>& resetHistorySm)
    : ResetInstanceSm(key, resetInstance, resetHistorySm, kTwin) {}

Qel::Ptr<PeerCellResetInstanceSm> PeerCellResetInstanceSm::PeerCellResetInstanceSmIs(
    U32 key, const Qel::Ptr<System::ResetInstance const>& resetInstance,
    const Qel::Ptr<ResetHistorySm>& resetHistorySm) {
  auto created = Qel::makeValid<PeerCellResetInstanceSm>(key, resetInstance, resetHistorySm);
  created->hasNotificationActiveIs(true);
  return created;
}

const Qel::TypeNode* PeerCellResetInstanceSm::fwkType() const { return Qel::typeNode(kType); }

Qel::TypeDescription PeerCellResetInstanceSm::typeDescription() {
  return twinDescription(kType, kUpdateFunction);
}

}  // namespace MiscSnmp::Agent
