#include "MiscSnmpAgent/CurCellResetInstanceSm.h"

#include "MiscSnmpAgent/ResetHistorySm.h"
#include "Qel/MakeValid.h"

namespace MiscSnmp::Agent {

namespace {

constexpr char kType[] = "MiscSnmp::Agent::CurCellResetInstanceSm";
constexpr char kUpdateFunction[] = "handleCurCellResetInstanceUpdate";

}  // namespace

const ResetInstanceSm::Twin CurCellResetInstanceSm::kTwin{
    "void MiscSnmp::Agent::CurCellResetInstanceSm::handleInitialized()key : ",
    "void MiscSnmp::Agent::CurCellResetInstanceSm::handleCurCellResetInstanceUpdate() Enter ",
    kUpdateFunction, &ResetHistorySm::deleteCurCellResetHistory,
    &ResetHistorySm::handleCurCellResetHistory};

CurCellResetInstanceSm::CurCellResetInstanceSm(
    U32 key, const Qel::Ptr<System::ResetInstance const>& resetInstance,
    const Qel::Ptr<ResetHistorySm>& resetHistorySm)
    : ResetInstanceSm(key, resetInstance, resetHistorySm, kTwin) {}

Qel::Ptr<CurCellResetInstanceSm> CurCellResetInstanceSm::CurCellResetInstanceSmIs(
    U32 key, const Qel::Ptr<System::ResetInstance const>& resetInstance,
    const Qel::Ptr<ResetHistorySm>& resetHistorySm) {
  auto created = Qel::makeValid<CurCellResetInstanceSm>(key, resetInstance, resetHistorySm);
  created->hasNotificationActiveIs(true);
  return created;
}

const Qel::TypeNode* CurCellResetInstanceSm::fwkType() const { return Qel::typeNode(kType); }

Qel::TypeDescription CurCellResetInstanceSm::typeDescription() {
  return twinDescription(kType, kUpdateFunction);
}

}  // namespace MiscSnmp::Agent
