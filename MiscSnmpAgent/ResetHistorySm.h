#pragma once

#include "Kavra/EntityManager.h"
#include "MiscSnmp/GeneralMib.h"
#include "MiscSnmpAgent/CurCellResetInstanceSm.h"
#include "MiscSnmpAgent/PeerCellResetHistoryStatusDirMounter.h"
#include "MiscSnmpAgent/PeerCellResetInstanceSm.h"
#include "MiscSnmpAgent/Reactor.h"
#include "Qel/Clock.h"
#include "Qel/HashMap.h"
#include "Qel/LiveCount.h"
#include "Qel/OwnerInterface.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/String.h"
#include "Qel/TypeNode.h"
#include "Qel/Types.h"
#include "Redundancy/RedundancyStatus.h"
#include "System/ResetCauseHistory.h"
#include "System/ResetInstance.h"

namespace MiscSnmp::Agent {

// Keeps GeneralMib::reloadCauseTable equal to the causes of the last reload of the own cell and,
// under a redundancy protocol with a reachable peer, of the peer cell.
//
// The own cell's causes stand under unit 0, on a supervisor a second time under the cell's id, and
// the peer's under the peer's id. Only reboot index 0 is published. Construction empties the table
// and writes the rows of what stands; from then on each change deletes all rows of its cell and
// writes them again. Rows stay when the machine goes: its successor empties the table.
//
// Holds its reactors, the instance machines and the mounter; the latter two refer back to it by
// counted references that do not keep it alive (OwnerInterface). Handlers read present state, stop
// at the first missing piece, and may be re-entered through the mutators. Whoever hears of a change
// may let go of the machine: what it is at then goes on to its end, and ends it.
//
// A walk over causes goes on, too, when the protocol changes inside it: what it writes of the peer
// after that, and the instance machine whose start it was, stay until the next change of the
// protocol or the next mount.
//
// The sources: ResetHistorySm.cpp has its life, what it watches, the protocol and the switch;
// ...Reactors.cpp what each notification triggers; ...Histories.cpp how histories become rows;
// ...Children.cpp the instance machines and the mounter.
class ResetHistorySm final : public Qel::OwnerInterface, public Qel::LiveCount<ResetHistorySm> {
 public:
  class QelRedundancyStatus final
      : public Reactor<Redundancy::RedundancyStatus::NotifieeConst, ResetHistorySm> {
   public:
    using Reactor::Reactor;
    void notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) override;
    void onProtocol() override;
    void onSwitchoverCapable() override;
  };

  // What the reactors of the two histories share: whatever changed, the whole history is examined
  // again by `update`.
  class HistoryReactor : public Reactor<System::ResetCauseHistory::NotifieeConst, ResetHistorySm> {
   public:
    using Reactor::onRebootHistory;
    void notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) override;
    void onRebootHistory(U32 key) override;
    void onRebootHistoryqelImmediate() override;

   protected:
    using Update = void (ResetHistorySm::*)();
    HistoryReactor(const Qel::Ptr<Qel::PtrInterface const>& history, ResetHistorySm* owner,
                   Update update)
        : Reactor(history, owner), update_(update) {}

   private:
    void react();

    const Update update_;
  };

  class QelCurCellResetHistory final : public HistoryReactor {
   public:
    QelCurCellResetHistory(const Qel::Ptr<Qel::PtrInterface const>& history, ResetHistorySm* owner)
        : HistoryReactor(history, owner, &ResetHistorySm::handleCurCellResetHistoryUpdate) {}
  };

  class QelPeerCellResetHistory final : public HistoryReactor {
   public:
    QelPeerCellResetHistory(const Qel::Ptr<Qel::PtrInterface const>& history, ResetHistorySm* owner)
        : HistoryReactor(history, owner, &ResetHistorySm::handlePeerCellResetHistoryUpdate) {}
  };

  // The redundancy status and the own cell's history must not be null.
  ResetHistorySm(const Qel::Ptr<Redundancy::RedundancyStatus const>& redundancyStatus,
                 const Qel::Ptr<GeneralMib>& generalMib,
                 const Qel::Ptr<System::ResetCauseHistory const>& curCellResetHistory,
                 const Qel::Ptr<Kavra::EntityManager>& entityManager, const Qel::String& cellType);
  ~ResetHistorySm() override;

  static Qel::Ptr<ResetHistorySm> ResetHistorySmIs(
      const Qel::Ptr<Redundancy::RedundancyStatus const>& redundancyStatus,
      const Qel::Ptr<GeneralMib>& generalMib,
      const Qel::Ptr<System::ResetCauseHistory const>& curCellResetHistory,
      const Qel::Ptr<Kavra::EntityManager>& entityManager, const Qel::String& cellType);

  // The watched entities, or null.
  Qel::Ptr<Redundancy::RedundancyStatus const> redundancyStatus() const;
  Qel::Ptr<System::ResetCauseHistory const> curCellResetHistory() const;
  Qel::Ptr<System::ResetCauseHistory const> peerCellResetHistory() const;
  const Qel::Ptr<GeneralMib>& generalMib() const noexcept { return generalMib_; }
  const Qel::Ptr<Kavra::EntityManager>& entityManager() const noexcept { return entityManager_; }
  const Qel::String& cellType() const noexcept { return cellType_; }
  const Qel::HashMap<CurCellResetInstanceSm, U32>& curCellResetInstanceSm() const noexcept {
    return curCellResetInstanceSm_;
  }
  const Qel::HashMap<PeerCellResetInstanceSm, U32>& peerCellResetInstanceSm() const noexcept {
    return peerCellResetInstanceSm_;
  }
  const Qel::Ptr<PeerCellResetHistoryStatusDirMounter>& peerCellResetHistoryStatusDirMounter()
      const noexcept {
    return peerCellResetHistoryStatusDirMounter_;
  }

  // Watch another entity and act on it; the present one changes nothing, null ends the watch. The
  // Del forms end the watch and return what was watched, or null.
  void redundancyStatusIs(const Qel::Ptr<Redundancy::RedundancyStatus const>& status);
  Qel::Ptr<Redundancy::RedundancyStatus const> redundancyStatusDel();
  void curCellResetHistoryIs(const Qel::Ptr<System::ResetCauseHistory const>& history);
  Qel::Ptr<System::ResetCauseHistory const> curCellResetHistoryDel();
  // A change, to null too, then also runs handlePeerCellResetHistory(). The Del form does not.
  void peerCellResetHistoryIs(const Qel::Ptr<System::ResetCauseHistory const>& history);
  Qel::Ptr<System::ResetCauseHistory const> peerCellResetHistoryDel();

  // The machine under `key`: a new one, or the present one when it has the same instance and back
  // pointer. Raises RangeException "null ValidPtr" for a null back pointer, NameInUseException when
  // the present one differs. Del and DelAll release machines and leave the table alone.
  Qel::Ptr<CurCellResetInstanceSm> curCellResetInstanceSmIs(
      U32 key, const Qel::Ptr<System::ResetInstance const>& resetInstance,
      const Qel::Ptr<ResetHistorySm>& resetHistorySm);
  Qel::Ptr<CurCellResetInstanceSm> curCellResetInstanceSmDel(U32 key);
  void curCellResetInstanceSmDelAll();
  Qel::Ptr<PeerCellResetInstanceSm> peerCellResetInstanceSmIs(
      U32 key, const Qel::Ptr<System::ResetInstance const>& resetInstance,
      const Qel::Ptr<ResetHistorySm>& resetHistorySm);
  Qel::Ptr<PeerCellResetInstanceSm> peerCellResetInstanceSmDel(U32 key);
  void peerCellResetInstanceSmDelAll();

  // The mounter: a new one with its notifications on, or the present one when both paths are equal.
  // Raises RangeException "null ValidPtr" for a null back pointer.
  Qel::Ptr<PeerCellResetHistoryStatusDirMounter> peerCellResetHistoryStatusDirMounterIs(
      const Qel::String& rootPath, const Qel::String& path,
      const Qel::Ptr<Kavra::EntityManager>& entityManager, const Qel::Ptr<Qel::Clock const>& clock,
      const Qel::Ptr<ResetHistorySm>& resetHistorySm);
  // Switches the mounter's notifications off, releases and returns it, or null.
  Qel::Ptr<PeerCellResetHistoryStatusDirMounter> peerCellResetHistoryStatusDirMounterDel();

  // What the instance machines and the mounter have done: remove the rows of a cell, or the
  // machines of the peer; turn the latest reload of a cell into rows, the own cell's without
  // removing any.
  void deleteCurCellResetHistory();
  void deletePeerCellResetHistory();
  void deletePeerCellResetInstanceSm();
  void handleCurCellResetHistory();
  void handlePeerCellResetHistory();

  // Public for construction and the nested reactors alone. The update forms re-examine every reload
  // of a cell's history; the keyed ones keep the machine of key 0 in step.
  void handleInitialized();
  void deleteAllCellResetHistory();
  void handleRedundancyProtocol();
  void handleCurCellResetHistoryUpdate();
  void handleCurCellResetHistoryUpdate(U32 key);
  void handlePeerCellResetHistoryUpdate();
  void handlePeerCellResetHistoryUpdate(U32 key);

  // Hands the switch on to the reactors, the instance machines and the mounter, in that order. One
  // that a reaction turns meanwhile stays as the reaction left it; an error ends the handing on.
  void hasNotificationActiveIs(bool active) override;
  void qelDoZombieReactors(bool zombie) override;
  const Qel::TypeNode* fwkType() const override;
  static Qel::TypeDescription typeDescription();

 private:
  // Has the reactor in `slot`, made where absent, watch `entity`, and act on it; null ends it.
  template <class SomeReactor, class Entity>
  void reactorIs(Qel::Ptr<SomeReactor>& slot, const Qel::Ptr<Entity const>& entity);
  template <class Sm, class Make>
  Qel::Ptr<Sm> resetInstanceSmIs(Qel::HashMap<Sm, U32>& machines, U32 key,
                                 Qel::Ptr<System::ResetInstance const> resetInstance,
                                 Qel::Ptr<ResetHistorySm> resetHistorySm, Make make);
  template <class Sm>
  Qel::Ptr<Sm> resetInstanceSmDel(Qel::HashMap<Sm, U32>& machines, U32 key);
  template <class Sm>
  void resetInstanceSmDelAll(Qel::HashMap<Sm, U32>& machines);

  void tearDown();

  Qel::Ptr<QelRedundancyStatus> redundancyStatus_;
  const Qel::Ptr<GeneralMib> generalMib_;
  Qel::Ptr<QelCurCellResetHistory> curCellResetHistory_;
  const Qel::Ptr<Kavra::EntityManager> entityManager_;
  const Qel::String cellType_;
  Qel::Ptr<QelPeerCellResetHistory> peerCellResetHistory_;
  Qel::HashMap<CurCellResetInstanceSm, U32> curCellResetInstanceSm_;
  Qel::HashMap<PeerCellResetInstanceSm, U32> peerCellResetInstanceSm_;
  Qel::Ptr<PeerCellResetHistoryStatusDirMounter> peerCellResetHistoryStatusDirMounter_;
};

}  // namespace MiscSnmp::Agent
