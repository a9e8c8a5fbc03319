#pragma once

#include "MiscSnmp/ReloadCauseEntry.h"
#include "MiscSnmp/ReloadCauseKey.h"
#include "Qel/Entity.h"
#include "Qel/Name.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/RbTreeMap.h"
#include "System/ResetInstance.h"

namespace MiscSnmp {

// The model that the writer of reload causes and the SNMP table share: rows in key order.
//
// Invariants: a row stands under its own key, at most one a key, and the reload of a key that is
// present never changes; to show another one, delete the row first.
// Ownership: the table holds counted rows; a row that was removed lives on in other hands.
// Re-entrancy: every change is told to the notifiees before the mutator returns, with the table
// already changed; a notifiee may change the table again, or let go of the model.
class GeneralMib final : public Qel::Entity {
 public:
  using ReloadCauseTable = Qel::RbTreeMap<ReloadCauseEntry, ReloadCauseKey, ReloadCauseEntry>;

  // Observers derive from it, are bound in the three steps of Qel/NotifieeConst.h, and say
  // `using NotifieeConst::onReloadCauseTable;` where they override one of the two forms.
  class NotifieeConst : public Qel::Entity::NotifieeConst {
   public:
    using Qel::Entity::NotifieeConst::NotifieeConst;
    void notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) override;
    // The watched model, or null.
    Qel::Ptr<GeneralMib const> generalMib() const;

    // There is a new row under `key`, or none any more.
    virtual void onReloadCauseTable(const ReloadCauseKey& /*key*/) {}
    virtual void onReloadCauseTableqelImmediate() {}
    // Any number of rows came or went.
    virtual void onReloadCauseTable() {}
  };

  explicit GeneralMib(const Qel::Name& name);
  // Tells the notifiees of every row that goes, in key order, before it lets them go. Their errors
  // end here.
  ~GeneralMib() override;

  const ReloadCauseTable& reloadCauseTable() const noexcept { return reloadCauseTable_; }
  // At the row under `from`, else the one with the smallest greater key, else the end. For
  // reloadCauseTableDel.
  ReloadCauseTable::Iterator reloadCauseTableIterator(const ReloadCauseKey& from = {}) {
    return reloadCauseTable_.startAt(from);
  }

  // The row under `key`, made where absent. Silent when the row is present with that very reload;
  // raises Qel::NameInUseException, with nothing changed, when it is present with another one.
  Qel::Ptr<ReloadCauseEntry> reloadCauseTableIs(
      const ReloadCauseKey& key, const Qel::Ptr<System::ResetInstance const>& resetInstance);
  // Each removes and returns the row under the key or at the iterator; null, and silent, when there
  // is none. The iterator keeps its place.
  Qel::Ptr<ReloadCauseEntry> reloadCauseTableDel(const ReloadCauseKey& key);
  Qel::Ptr<ReloadCauseEntry> reloadCauseTableDel(ReloadCauseTable::Iterator& it);
  // Removes the rows one by one, each with its own notification, in key order.
  void reloadCauseTableDelAll();

  // Tells every notifiee that the row under `key` changed.
  void reloadCauseTableNotify(const ReloadCauseKey& key) const;

  const Qel::TypeNode* fwkType() const override;

 private:
  Qel::Ptr<ReloadCauseEntry> removed(Qel::Ptr<ReloadCauseEntry> row) const;

  ReloadCauseTable reloadCauseTable_;
};

// A new model with an empty table. Raises Qel::RangeException "null ValidPtr" when memory is out.
Qel::Ptr<GeneralMib> generalMibFactory(Qel::Name name);

}  // namespace MiscSnmp
