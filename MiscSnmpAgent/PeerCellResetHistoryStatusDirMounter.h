#pragma once

#include "Kavra/DirMounter.h"
#include "Kavra/EntityManager.h"
#include "Qel/Clock.h"
#include "Qel/Entity.h"
#include "Qel/LiveCount.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/String.h"
#include "Qel/TypeNode.h"

namespace MiscSnmp::Agent {

class ResetHistorySm;

// Fetches the peer cell's reset-cause history from the state database, read-only, and hands it to
// its ResetHistorySm. Used for one mount and then idle until it is dropped; it never unmounts.
// Holds its owner by a counted reference; the owner knows it as a child.
class PeerCellResetHistoryStatusDirMounter final
    : public Kavra::DirMounter,
      public Qel::LiveCount<PeerCellResetHistoryStatusDirMounter> {
 public:
  PeerCellResetHistoryStatusDirMounter(const Qel::String& rootPath, const Qel::String& path,
                                       const Qel::Ptr<Kavra::EntityManager>& entityManager,
                                       const Qel::Ptr<Qel::Clock const>& clock,
                                       const Qel::Ptr<ResetHistorySm>& resetHistorySm);
  ~PeerCellResetHistoryStatusDirMounter() override;

  // A new mounter, not started. Raises RangeException "null ValidPtr" for a null back pointer.
  static Qel::Ptr<PeerCellResetHistoryStatusDirMounter> PeerCellResetHistoryStatusDirMounterIs(
      const Qel::String& rootPath, const Qel::String& path,
      const Qel::Ptr<Kavra::EntityManager>& entityManager, const Qel::Ptr<Qel::Clock const>& clock,
      const Qel::Ptr<ResetHistorySm>& resetHistorySm);

  const Qel::Ptr<ResetHistorySm>& resetHistorySm() const noexcept { return resetHistorySm_; }

  // Anything but a reset-cause history counts as none.
  void handleComplete(const Qel::Ptr<Qel::Entity>& entity) override;

  void hasNotificationActiveIs(bool active) override;
  Qel::OwnerInterface* qelOwner() const override;
  const Qel::TypeNode* fwkType() const override;
  static Qel::TypeDescription typeDescription();

 private:
  const Qel::Ptr<ResetHistorySm> resetHistorySm_;
};

}  // namespace MiscSnmp::Agent
