#pragma once

#include "MiscSnmpAgent/Reactor.h"
#include "Qel/LiveCount.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/TypeNode.h"
#include "Qel/Types.h"
#include "System/ResetInstance.h"

namespace MiscSnmp::Agent {

class ResetHistorySm;

// Watches the causes of one reload of a cell and, whenever they change, has the ResetHistorySm that
// owns it make the cell's rows anew. The code of the twins CurCellResetInstanceSm and
// PeerCellResetInstanceSm, which differ in what `Twin` says.
//
// Construction already rebuilds the rows once, before the owner stores the object. Holds its owner
// by a counted reference; the owner knows it as a child. Key and owner never change. The watched
// instance is the notifier of the nested reactor; without a reactor nothing is watched.
class ResetInstanceSm : public Qel::PtrInterface, public Qel::LiveCount<ResetInstanceSm> {
 public:
  class QelResetInstance final
      : public Reactor<System::ResetInstance::NotifieeConst, ResetInstanceSm> {
   public:
    using Reactor::onCauseQ;
    using Reactor::Reactor;
    // Rebinding to another instance rebuilds the rows; to the present one it does nothing.
    void notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) override;
    void onCauseQ(U32 key) override;
    void onCauseQqelImmediate() override;

   private:
    void react();
  };

  ~ResetInstanceSm() override;

  U32 key() const noexcept { return key_; }
  const Qel::Ptr<ResetHistorySm>& resetHistorySm() const noexcept { return resetHistorySm_; }
  // The watched instance, or null.
  Qel::Ptr<System::ResetInstance const> resetInstance() const;
  // Watches another instance, which rebuilds the rows, unless nothing was watched before: a first
  // instance is watched without a rebuild. Null ends the watch.
  void resetInstanceIs(const Qel::Ptr<System::ResetInstance const>& instance);
  // Ends the watch and returns what was watched, or null. Rebuilds nothing.
  Qel::Ptr<System::ResetInstance const> resetInstanceDel();

  void handleInitialized();

  void hasNotificationActiveIs(bool active) override;
  void qelDoZombieReactors(bool zombie) override;
  Qel::OwnerInterface* qelOwner() const override;

 protected:
  // What tells the twins apart.
  struct Twin {
    const char* initializedText;  // signature text and what follows it, up to the key
    const char* updateText;
    const char* updateFunction;
    void (ResetHistorySm::*deleteRows)();
    void (ResetHistorySm::*writeRows)();
  };

  // Rebuilds the rows; an exception from the rebuild leaves no object behind. `twin` is a constant.
  ResetInstanceSm(U32 key, const Qel::Ptr<System::ResetInstance const>& resetInstance,
                  const Qel::Ptr<ResetHistorySm>& resetHistorySm, const Twin& twin);

  void handleUpdate();

  // The generic access of the twin `typeName`, whose update handler goes by `updateFunction`.
  static Qel::TypeDescription twinDescription(const char* typeName, const char* updateFunction);

 private:
  void silence();

  const U32 key_;
  const Twin& twin_;
  const Qel::Ptr<ResetHistorySm> resetHistorySm_;
  Qel::Ptr<QelResetInstance> resetInstance_;
};

}  // namespace MiscSnmp::Agent
