#pragma once

#include "MiscSnmpAgent/ResetInstanceSm.h"
#include "Qel/Ptr.h"
#include "Qel/TypeNode.h"
#include "Qel/Types.h"
#include "System/ResetInstance.h"

namespace MiscSnmp::Agent {

// The ResetInstanceSm of a reload of the peer supervisor.
class PeerCellResetInstanceSm final : public ResetInstanceSm {
 public:
  PeerCellResetInstanceSm(U32 key, const Qel::Ptr<System::ResetInstance const>& resetInstance,
                          const Qel::Ptr<ResetHistorySm>& resetHistorySm);

  // A new machine with its notifications on. An error of the rebuild passes to the caller.
  static Qel::Ptr<PeerCellResetInstanceSm> PeerCellResetInstanceSmIs(
      U32 key, const Qel::Ptr<System::ResetInstance const>& resetInstance,
      const Qel::Ptr<ResetHistorySm>& resetHistorySm);

  void handlePeerCellResetInstanceUpdate() { handleUpdate(); }

  const Qel::TypeNode* fwkType() const override;
  static Qel::TypeDescription typeDescription();

 private:
  static const Twin kTwin;
};

}  // namespace MiscSnmp::Agent
