#include "MiscSnmp/GeneralMib.h"

#include <cstddef>
#include <utility>

#include "MiscSnmp/ReloadCauseKeyIf.h"
#include "Qel/Exception.h"
#include "Qel/Format.h"
#include "Qel/GenericIf.h"
#include "Qel/GenericValue.h"
#include "Qel/MakeValid.h"
#include "Qel/TypeNode.h"

namespace MiscSnmp {

namespace {

constexpr char kReloadCauseTable[] = "reloadCauseTable";

// Passes the notifications of a model on by attribute name. Watches without keeping alive, so that
// it also hears of the rows that go with the model.
class GeneralMibNotifieeGeneric final : public GeneralMib::NotifieeConst {
 public:
  explicit GeneralMibNotifieeGeneric(Qel::AttributeNotification notification)
      : NotifieeConst(Qel::NotifierReference::plain), notification_(std::move(notification)) {}

  void onReloadCauseTable(const ReloadCauseKey& key) override {
    notification_(kReloadCauseTable, Qel::Ptr<Qel::GenericIf>(Qel::make<ReloadCauseKeyIf>(key)));
  }
  void onReloadCauseTable() override { notification_(kReloadCauseTable, Qel::GenericValue()); }

 private:
  const Qel::AttributeNotification notification_;
};

Qel::Ptr<Qel::PtrInterface::NotifieeConst> newGenericNotifiee(
    const Qel::Ptr<Qel::PtrInterface const>& notifier, Qel::AttributeNotification notification) {
  const auto notifiee = Qel::make<GeneralMibNotifieeGeneric>(std::move(notification));
  notifiee->notifierIs(notifier);
  notifiee->isRegisteredNotifieeIs(true);
  notifiee->hasNotificationActiveIs(true);
  return notifiee;
}

GeneralMib& mibOf(Qel::PtrInterface& object) { return dynamic_cast<GeneralMib&>(object); }

void needArguments(const Qel::GenericArgs& args, std::size_t count, const char* names) {
  if (args.size() == count) return;
  Qel::throwTypeException(Qel::format("expected the arguments (%s) but found %u of them", names,
                                      static_cast<unsigned>(args.size())));
}

Qel::GenericValue setRow(Qel::PtrInterface& object, const Qel::GenericArgs& args) {
  needArguments(args, 2, "key, resetCause");
  const ReloadCauseKey key = ReloadCauseKeyIf::keyOf(args[0]);
  const auto resetCause = args[1].toPtr<System::ResetInstance const>();
  // Every read of the row would go to it.
  if (!resetCause) Qel::throwRangeException("null ValidPtr");
  return mibOf(object).reloadCauseTableIs(key, resetCause);
}

Qel::GenericValue delAllRows(Qel::PtrInterface& object) {
  mibOf(object).reloadCauseTableDelAll();
  return {};
}

Qel::GenericValue readRow(Qel::PtrInterface& object, const Qel::GenericArgs& args) {
  needArguments(args, 1, "key");
  return mibOf(object).reloadCauseTable()[ReloadCauseKeyIf::keyOf(args[0])];
}

Qel::GenericValue delRow(Qel::PtrInterface& object, const Qel::GenericArgs& args) {
  needArguments(args, 1, "key");
  return mibOf(object).reloadCauseTableDel(ReloadCauseKeyIf::keyOf(args[0]));
}

// How many rows a unit has.
Qel::GenericValue countRows(Qel::PtrInterface& object, const Qel::GenericArgs& args) {
  needArguments(args, 1, "unitIndex");
  const U32 unit = args[0].toU32();
  U32 rows = 0;
  for (auto it = mibOf(object).reloadCauseTableIterator({unit, 0, 0});
       it && it.key().unitIndex() == unit; it.advance()) {
    ++rows;
  }
  return rows;
}

const auto registration = Qel::typeNodeIs({
    .name = "MiscSnmp::GeneralMib",
    // The table as a whole has no generic value: rows are read one at a time, by the operation.
    .attributes = {{"name",
                    [](const auto& object) {
                      return dynamic_cast<const GeneralMib&>(object).name();
                    }},
                   {kReloadCauseTable, {}, &setRow, &delAllRows}},
    .operations = {{"reloadCauseTable", &readRow},
                   {"reloadCauseTableDel", &delRow},
                   {"reloadCauseTableRows", &countRows}},
    .factory =
        [](const Qel::GenericArgs& args) {
          needArguments(args, 1, "name");
          return generalMibFactory(args[0].toName());
        },
    .newEntityForDir = [](Qel::Dir&, const Qel::Name& name) { return generalMibFactory(name); },
    .genericNotifiee = &newGenericNotifiee,
});

}  // namespace

void GeneralMib::NotifieeConst::notifierIs(Qel::Ptr<Qel::PtrInterface const> notifier) {
  Qel::Entity::NotifieeConst::notifierIs(Qel::ptrCast<GeneralMib const>(notifier));
}

Qel::Ptr<GeneralMib const> GeneralMib::NotifieeConst::generalMib() const {
  return Qel::ptrCast<GeneralMib const>(notifier());
}

GeneralMib::GeneralMib(const Qel::Name& name) : Qel::Entity(name) {}

GeneralMib::~GeneralMib() {
  // As reloadCauseTableDelAll, but for errors. A row that a notifiee puts back goes without a word;
  // one that it puts behind is met in turn, as the walk of any removal meets it.
  for (auto it = reloadCauseTable_.iterator(); it; it.advance()) {
    try {
      reloadCauseTableDel(it);
    } catch (...) {
      // A notifiee's fault must not cost the others the rest of the rows, nor leave a destructor.
    }
  }
  notifieesDelAll();
}

Qel::Ptr<ReloadCauseEntry> GeneralMib::reloadCauseTableIs(
    const ReloadCauseKey& key, const Qel::Ptr<System::ResetInstance const>& resetInstance) {
  if (Qel::Ptr<ReloadCauseEntry> present = reloadCauseTable_[key]) {
    if (present->resetCause() != resetInstance) {
      Qel::throwReinstantiationException("_resetCause", resetInstance.get(),
                                         present->resetCause().get(), "System::ResetInstance");
    }
    return present;
  }
  auto row = Qel::makeValid<ReloadCauseEntry>(key, resetInstance);
  reloadCauseTable_.rowIs(row);
  reloadCauseTableNotify(row->key());
  return row;
}

Qel::Ptr<ReloadCauseEntry> GeneralMib::reloadCauseTableDel(const ReloadCauseKey& key) {
  return removed(reloadCauseTable_.rowDel(key));
}

Qel::Ptr<ReloadCauseEntry> GeneralMib::reloadCauseTableDel(ReloadCauseTable::Iterator& it) {
  return removed(reloadCauseTable_.rowDel(it));
}

void GeneralMib::reloadCauseTableDelAll() {
  const Qel::Ptr<GeneralMib> alive(this);
  for (auto it = reloadCauseTable_.iterator(); it; it.advance()) reloadCauseTableDel(it);
}

void GeneralMib::reloadCauseTableNotify(const ReloadCauseKey& key) const {
  // By value: a notifiee may end what `key` refers into.
  notify<NotifieeConst>([key](NotifieeConst& notifiee) { notifiee.onReloadCauseTable(key); });
}

Qel::Ptr<ReloadCauseEntry> GeneralMib::removed(Qel::Ptr<ReloadCauseEntry> row) const {
  if (row) reloadCauseTableNotify(row->key());
  return row;
}

const Qel::TypeNode* GeneralMib::fwkType() const { return &registration->node(); }

Qel::Ptr<GeneralMib> generalMibFactory(Qel::Name name) { return Qel::makeValid<GeneralMib>(name); }

}  // namespace MiscSnmp
