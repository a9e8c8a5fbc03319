#include "MiscSnmp/GeneralMib.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "MiscSnmp/ReloadCauseKeyIf.h"
#include "Qel/Dir.h"
#include "Qel/Exception.h"
#include "Qel/Strep.h"
#include "Qel/TypeNode.h"
#include "support/LiveObjects.h"
#include "support/Reloads.h"

namespace {
bool memoryIsOut = false;
}  // namespace

extern "C" {
// The linker puts this in the place of the allocations that answer null when memory is out.
void* __real__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void* __wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
void* __wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag) {
  return memoryIsOut ? nullptr : __real__ZnwmRKSt9nothrow_t(size, tag);
}
}

namespace MiscSnmp {
namespace {

using support::reloadOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StrEq;
using testing::ThrowsMessage;

using Keys = std::vector<ReloadCauseKey>;

// Notes the key of each notification; `reaction` may do more.
class Observer final : public GeneralMib::NotifieeConst {
 public:
  explicit Observer(const Qel::Ptr<GeneralMib>& model,
                    Qel::NotifierReference reference = Qel::NotifierReference::plain)
      : NotifieeConst(reference) {
    notifierIs(model);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  void onReloadCauseTable(const ReloadCauseKey& key) override {
    heard.push_back(key);
    if (reaction) reaction(key);
  }
  void onReloadCauseTable() override { ++wholes; }
  void onReloadCauseTableqelImmediate() override { ++wholes; }
  void onZeroReferences() override { ++zeroReferences; }

  Keys heard;
  int wholes = 0;
  int zeroReferences = 0;
  std::function<void(const ReloadCauseKey&)> reaction;
};

class GeneralMibTest : public support::LiveObjectsTest {
 protected:
  ~GeneralMibTest() override { memoryIsOut = false; }

  Keys rows() const {
    Keys keys;
    for (auto it = model->reloadCauseTable().iteratorConst(); it; it.advance()) {
      keys.push_back(it.key());
    }
    return keys;
  }
  void rowsAre(const Keys& keys) {
    for (const ReloadCauseKey& key : keys) model->reloadCauseTableIs(key, instance);
    observer->heard.clear();
  }
  static std::string refusal(const Qel::Ptr<System::ResetInstance>& wanted,
                             const Qel::Ptr<System::ResetInstance>& present) {
    const auto text = [](const Qel::Ptr<System::ResetInstance>& pointer) {
      return Qel::valueToStrepOfRawPtr(pointer.get(), "System::ResetInstance").stdString();
    };
    return "Reinstantiating the pointer interface where constructor parameter attribute "
           "_resetCause has a different value of " +
           text(wanted) + " than the current value of " + text(present) + " not allowed";
  }

  const Qel::Ptr<System::ResetInstance> instance = reloadOf(3);
  Qel::Ptr<GeneralMib> model = generalMibFactory("generalMib");
  Qel::Ptr<Observer> observer = Qel::make<Observer>(model);
  const ReloadCauseKey k{1, 0, 1};
};

TEST_F(GeneralMibTest, StartsEmptyUnderItsName) {
  EXPECT_EQ(model->name(), Qel::Name("generalMib"));
  EXPECT_TRUE(model->reloadCauseTable().empty());
  EXPECT_EQ(model->reloadCauseTable()[k], nullptr);
}

TEST_F(GeneralMibTest, InsertingTheSameReloadTwiceKeepsTheRowAndTellsOnce) {
  const auto row = model->reloadCauseTableIs(k, instance);
  EXPECT_EQ(model->reloadCauseTableIs(k, instance), row);
  EXPECT_EQ(model->reloadCauseTable()[k], row);
  EXPECT_EQ(model->reloadCauseTable().members(), 1U);
  EXPECT_THAT(observer->heard, ElementsAre(k));
  EXPECT_EQ(observer->wholes, 0);
}

TEST_F(GeneralMibTest, RefusesAnotherReloadUnderAPresentKey) {
  const auto row = model->reloadCauseTableIs(k, instance);
  observer->heard.clear();
  const auto other = reloadOf(3);
  EXPECT_THAT([&] { model->reloadCauseTableIs(k, other); },
              ThrowsMessage<Qel::NameInUseException>(StrEq(refusal(other, instance))));
  EXPECT_EQ(model->reloadCauseTable()[k], row);
  EXPECT_EQ(row->resetCause(), instance);
  EXPECT_THAT(observer->heard, IsEmpty());
}

TEST_F(GeneralMibTest, RefusesNoReloadUnderAPresentKey) {
  model->reloadCauseTableIs(k, instance);
  EXPECT_THAT([&] { model->reloadCauseTableIs(k, nullptr); },
              ThrowsMessage<Qel::NameInUseException>(StrEq(refusal(nullptr, instance))));
  EXPECT_EQ(model->reloadCauseTable()[k]->resetCause(), instance);
}

TEST_F(GeneralMibTest, TakesAnotherReloadOnceTheRowWasDeleted) {
  const auto old = model->reloadCauseTableIs(k, instance);
  model->reloadCauseTableDel(k);
  observer->heard.clear();
  const auto other = reloadOf(1);
  const auto row = model->reloadCauseTableIs(k, other);
  EXPECT_NE(row, old);
  EXPECT_EQ(row->resetCause(), other);
  EXPECT_THAT(observer->heard, ElementsAre(k));
}

TEST_F(GeneralMibTest, DeletesARowAndHandsItOver) {
  rowsAre({k, {2, 0, 1}});
  const auto row = model->reloadCauseTableDel(k);
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->key(), k);
  EXPECT_EQ(row->causeDesc(), "cause 1");
  EXPECT_THAT(rows(), ElementsAre(ReloadCauseKey(2, 0, 1)));
  EXPECT_THAT(observer->heard, ElementsAre(k));
}

TEST_F(GeneralMibTest, DeletingAnAbsentKeyIsSilent) {
  rowsAre({k});
  EXPECT_EQ(model->reloadCauseTableDel({9, 9, 9}), nullptr);
  EXPECT_THAT(rows(), ElementsAre(k));
  EXPECT_THAT(observer->heard, IsEmpty());
}

TEST_F(GeneralMibTest, DeletesTheRowAtAnIterator) {
  rowsAre({{1, 1, 1}, {1, 1, 2}});
  auto it = model->reloadCauseTableIterator({1, 1, 2});
  const auto row = model->reloadCauseTableDel(it);
  ASSERT_NE(row, nullptr);
  EXPECT_EQ(row->key(), ReloadCauseKey(1, 1, 2));
  EXPECT_THAT(rows(), ElementsAre(ReloadCauseKey(1, 1, 1)));
  EXPECT_THAT(observer->heard, ElementsAre(ReloadCauseKey(1, 1, 2)));
}

TEST_F(GeneralMibTest, DeletingThroughAnIteratorAtNoRowIsSilent) {
  rowsAre({k});
  auto it = model->reloadCauseTableIterator({9, 9, 9});
  ASSERT_FALSE(it);
  EXPECT_EQ(model->reloadCauseTableDel(it), nullptr);
  auto gone = model->reloadCauseTableIterator();
  model->reloadCauseTableDel(k);
  observer->heard.clear();
  EXPECT_EQ(model->reloadCauseTableDel(gone), nullptr);
  EXPECT_THAT(observer->heard, IsEmpty());
}

TEST_F(GeneralMibTest, DeletesAllRowsInKeyOrderEachToldOnItsOwn) {
  rowsAre({{2, 1, 1}, {1, 1, 2}, {1, 1, 1}});
  model->reloadCauseTableDelAll();
  EXPECT_THAT(observer->heard, ElementsAre(ReloadCauseKey(1, 1, 1), ReloadCauseKey(1, 1, 2),
                                           ReloadCauseKey(2, 1, 1)));
  EXPECT_EQ(observer->wholes, 0);
  EXPECT_TRUE(model->reloadCauseTable().empty());
}

TEST_F(GeneralMibTest, DeletingAllOfNothingIsSilent) {
  model->reloadCauseTableDelAll();
  EXPECT_THAT(observer->heard, IsEmpty());
}

TEST_F(GeneralMibTest, DeletesAllWhileANotifieeChangesTheTable) {
  rowsAre({{1, 0, 1}, {2, 0, 1}, {3, 0, 1}});
  observer->reaction = [this](const ReloadCauseKey& key) {
    if (!(key == ReloadCauseKey(1, 0, 1))) return;
    model->reloadCauseTableDel({2, 0, 1});
    model->reloadCauseTableIs({4, 0, 1}, instance);
    model->reloadCauseTableIs({0, 0, 1}, instance);
  };
  model->reloadCauseTableDelAll();
  EXPECT_THAT(observer->heard, ElementsAre(ReloadCauseKey(1, 0, 1), ReloadCauseKey(2, 0, 1),
                                           ReloadCauseKey(4, 0, 1), ReloadCauseKey(0, 0, 1),
                                           ReloadCauseKey(3, 0, 1), ReloadCauseKey(4, 0, 1)));
  // It stands behind the place where the deletion was.
  EXPECT_THAT(rows(), ElementsAre(ReloadCauseKey(0, 0, 1)));
}

TEST_F(GeneralMibTest, NotifieesSeeTheTableAlreadyChanged) {
  Keys seen;
  observer->reaction = [&](const ReloadCauseKey&) {
    for (const ReloadCauseKey& key : rows()) seen.push_back(key);
    seen.emplace_back();
  };
  model->reloadCauseTableIs(k, instance);
  model->reloadCauseTableDel(k);
  EXPECT_THAT(seen, ElementsAre(k, ReloadCauseKey(), ReloadCauseKey()));
}

TEST_F(GeneralMibTest, ANotifieeMayDeleteTheRowThatItIsToldOf) {
  observer->reaction = [this](const ReloadCauseKey& key) {
    observer->reaction = {};
    model->reloadCauseTableDel(key);
  };
  const auto row = model->reloadCauseTableIs(k, instance);
  EXPECT_EQ(row->key(), k);
  EXPECT_TRUE(model->reloadCauseTable().empty());
  EXPECT_THAT(observer->heard, ElementsAre(k, k));
}

TEST_F(GeneralMibTest, ANotifieeMayLetGoOfTheModelThatTellsIt) {
  rowsAre({{1, 0, 1}, {2, 0, 1}});
  observer->reaction = [this](const ReloadCauseKey&) { model = nullptr; };
  const auto row = model->reloadCauseTableDel({1, 0, 1});
  EXPECT_EQ(row->key(), ReloadCauseKey(1, 0, 1));
  EXPECT_EQ(model, nullptr);
}

TEST_F(GeneralMibTest, ANotifieeMayLetGoOfTheModelWhoseRowsAllGo) {
  rowsAre({{1, 0, 1}, {2, 0, 1}});
  observer->reaction = [this](const ReloadCauseKey&) { model = nullptr; };
  model->reloadCauseTableDelAll();
  EXPECT_EQ(model, nullptr);
  EXPECT_THAT(observer->heard, ElementsAre(ReloadCauseKey(1, 0, 1), ReloadCauseKey(2, 0, 1)));
}

TEST_F(GeneralMibTest, TellsEveryNotifieeOfTheSameKeyWhateverBecomesOfTheCallersOwn) {
  ReloadCauseKey key = k;
  const auto second = Qel::make<Observer>(model);
  observer->reaction = [&](const ReloadCauseKey&) { key = {9, 9, 9}; };
  model->reloadCauseTableNotify(key);
  EXPECT_THAT(second->heard, ElementsAre(k));
}

TEST_F(GeneralMibTest, NotifyTellsEveryNotifieeInOrder) {
  const auto second = Qel::make<Observer>(model);
  std::string order;
  observer->reaction = [&](const ReloadCauseKey&) { order += "1"; };
  second->reaction = [&](const ReloadCauseKey&) { order += "2"; };
  model->reloadCauseTableNotify(k);
  EXPECT_EQ(order, "12");
  EXPECT_THAT(second->heard, ElementsAre(k));
}

TEST_F(GeneralMibTest, TellsNobodyWhoLeftOrSleeps) {
  const auto asleep = Qel::make<Observer>(model);
  asleep->hasNotificationActiveIs(false);
  observer->isRegisteredNotifieeIs(false);
  model->reloadCauseTableIs(k, instance);
  EXPECT_THAT(observer->heard, IsEmpty());
  EXPECT_THAT(asleep->heard, IsEmpty());
}

TEST_F(GeneralMibTest, ItsEndTellsOfEveryRowAndThenLetsTheNotifieesGo) {
  rowsAre({{2, 0, 1}, {1, 0, 2}, {1, 0, 1}});
  EXPECT_EQ(observer->generalMib(), model);
  std::vector<bool> registered;
  observer->reaction = [&](const ReloadCauseKey&) {
    registered.push_back(observer->isRegisteredNotifiee());
  };
  model = nullptr;
  EXPECT_THAT(observer->heard, ElementsAre(ReloadCauseKey(1, 0, 1), ReloadCauseKey(1, 0, 2),
                                           ReloadCauseKey(2, 0, 1)));
  EXPECT_THAT(registered, ElementsAre(true, true, true));
  EXPECT_FALSE(observer->isRegisteredNotifiee());
  EXPECT_EQ(observer->generalMib(), nullptr);
  EXPECT_EQ(observer->zeroReferences, 1);
  EXPECT_EQ(instance->references(), 1U);
}

TEST_F(GeneralMibTest, ItsEndSurvivesANotifieeThatThrows) {
  rowsAre({{1, 0, 1}, {2, 0, 1}});
  const auto second = Qel::make<Observer>(model);
  observer->reaction = [](const ReloadCauseKey&) { throw std::runtime_error("a fault"); };
  model = nullptr;
  EXPECT_THAT(observer->heard, ElementsAre(ReloadCauseKey(1, 0, 1), ReloadCauseKey(2, 0, 1)));
  EXPECT_FALSE(second->isRegisteredNotifiee());
}

TEST_F(GeneralMibTest, ItsEndEndsAlthoughANotifieePutsARowBackAndThrows) {
  rowsAre({{1, 0, 1}, {2, 0, 1}});
  GeneralMib* const dying = model.get();
  observer->reaction = [&](const ReloadCauseKey& key) {
    if (dying->reloadCauseTable()[key]) return;  // the notification of the row put back
    dying->reloadCauseTableIs(key, instance);
    throw std::runtime_error("a fault");
  };
  model = nullptr;
  EXPECT_THAT(observer->heard, ElementsAre(ReloadCauseKey(1, 0, 1), ReloadCauseKey(1, 0, 1),
                                           ReloadCauseKey(2, 0, 1), ReloadCauseKey(2, 0, 1)));
  EXPECT_EQ(instance->references(), 1U);
}

TEST_F(GeneralMibTest, ARowOutlivesTheModelInOtherHands) {
  auto row = model->reloadCauseTableIs(k, instance);
  model = nullptr;
  EXPECT_EQ(row->causeDesc(), "cause 1");
  EXPECT_EQ(instance->references(), 2U);
  row = nullptr;
  EXPECT_EQ(instance->references(), 1U);
}

TEST_F(GeneralMibTest, ACountedNotifieeKeepsTheModelAlive) {
  const auto counted = Qel::make<Observer>(model, Qel::NotifierReference::counted);
  model = nullptr;
  ASSERT_NE(counted->generalMib(), nullptr);
  EXPECT_EQ(counted->generalMib()->name(), Qel::Name("generalMib"));
  counted->notifierIs(nullptr);
}

TEST_F(GeneralMibTest, ANotifieeBindsToModelsAlone) {
  observer->notifierIs(instance);
  EXPECT_EQ(observer->notifier(), nullptr);
}

TEST_F(GeneralMibTest, StartAtStandsAtTheKeyOrTheNextGreaterOne) {
  rowsAre({{1, 1, 5}, {1, 2, 1}});
  const auto& table = model->reloadCauseTable();
  EXPECT_EQ(table.startAt({1, 2, 0}).key(), ReloadCauseKey(1, 2, 1));
  EXPECT_EQ(table.startAt({1, 1, 5}).key(), ReloadCauseKey(1, 1, 5));
  EXPECT_FALSE(table.startAt({9, 9, 9}));
}

TEST_F(GeneralMibTest, AnIteratorWhoseRowWasDeletedMovesToTheNextGreaterKey) {
  rowsAre({{1, 0, 1}, {1, 0, 2}, {1, 0, 3}});
  auto it = model->reloadCauseTable().startAt({1, 0, 1});
  model->reloadCauseTableDel({1, 0, 1});
  model->reloadCauseTableDel({1, 0, 2});
  it.advance();
  ASSERT_TRUE(it);
  EXPECT_EQ(it.key(), ReloadCauseKey(1, 0, 3));
  it.advance();
  EXPECT_FALSE(it);
}

TEST_F(GeneralMibTest, AgreesWithAMapUnderRandomChangesAndTellsOfEachOnce) {
  std::mt19937 random(20260102);
  std::uniform_int_distribution<U32> field(0, 4);
  std::map<ReloadCauseKey, Qel::Ptr<ReloadCauseEntry>> expected;
  Keys told;
  for (int i = 0; i < 20000; ++i) {
    const ReloadCauseKey key(field(random), 0, field(random));
    if (field(random) < 2) {
      const auto row = model->reloadCauseTableIs(key, instance);
      if (expected.emplace(key, row).second) told.push_back(key);
    } else if (const auto row = model->reloadCauseTableDel(key)) {
      ASSERT_EQ(expected.at(key), row);
      expected.erase(key);
      told.push_back(key);
    } else {
      ASSERT_FALSE(expected.contains(key));
    }
    ASSERT_EQ(model->reloadCauseTable().members(), expected.size());
  }
  Keys keys;
  for (const auto& [key, row] : expected) keys.push_back(key);
  EXPECT_EQ(rows(), keys);
  EXPECT_EQ(observer->heard, told);
}

TEST_F(GeneralMibTest, RaisesARangeErrorWhenThereIsNoMemoryForARow) {
  memoryIsOut = true;
  EXPECT_THAT([&] { model->reloadCauseTableIs(k, instance); },
              ThrowsMessage<Qel::RangeException>(StrEq("null ValidPtr")));
  memoryIsOut = false;
  EXPECT_TRUE(model->reloadCauseTable().empty());
  EXPECT_THAT(observer->heard, IsEmpty());
}

TEST_F(GeneralMibTest, RaisesARangeErrorWhenThereIsNoMemoryForAModel) {
  memoryIsOut = true;
  EXPECT_THAT([] { generalMibFactory("x"); },
              ThrowsMessage<Qel::RangeException>(StrEq("null ValidPtr")));
  Qel::Ptr<Qel::Dir> dir = Qel::make<Qel::Dir>("misc");
  EXPECT_THAT([&] { dir->newEntityIs("MiscSnmp::GeneralMib", "x"); },
              ThrowsMessage<Qel::RangeException>(StrEq("null ValidPtr")));
}

TEST_F(GeneralMibTest, IsMadeByADirectory) {
  const auto dir = Qel::make<Qel::Dir>("misc");
  const auto entity = dir->newEntityIs("MiscSnmp::GeneralMib", "generalMib");
  EXPECT_NE(Qel::ptrCast<GeneralMib>(entity), nullptr);
  EXPECT_EQ(dir->entity("generalMib"), entity);
}

TEST_F(GeneralMibTest, IsMadeThroughTheTypeRegistry) {
  const auto* type = Qel::typeNode("MiscSnmp::GeneralMib");
  ASSERT_NE(type, nullptr);
  const auto made = Qel::ptrCast<GeneralMib>(type->newObject({"fresh"}));
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->name(), Qel::Name("fresh"));
  EXPECT_EQ(made->fwkType(), type);
  EXPECT_THROW(type->newObject({}), Qel::TypeException);
  EXPECT_THROW(type->newObject({U32{1}}), Qel::TypeException);
}

TEST_F(GeneralMibTest, IsDrivenThroughTheReflectiveInterface) {
  const auto reflected = Qel::genericIf(model);
  const Qel::GenericValue key = Qel::Ptr<Qel::GenericIf>(Qel::make<ReloadCauseKeyIf>(k));
  EXPECT_THAT(reflected->attributeNames(), ElementsAre("name", "reloadCauseTable"));
  EXPECT_EQ(reflected->attribute("name").toString(), "generalMib");
  const auto row =
      reflected->attributeIs("reloadCauseTable", {key, instance}).toPtr<ReloadCauseEntry>();
  EXPECT_EQ(model->reloadCauseTable()[k], row);
  EXPECT_EQ(reflected->operation("reloadCauseTable", {key}).toPtr<ReloadCauseEntry>(), row);
  EXPECT_EQ(reflected->operation("reloadCauseTableDel", {key}).toPtr<ReloadCauseEntry>(), row);
  EXPECT_EQ(reflected->operation("reloadCauseTable", {key}).toPtr<ReloadCauseEntry>(), nullptr);
  rowsAre({{1, 0, 1}, {1, 0, 2}});
  reflected->attributeDel("reloadCauseTable");
  EXPECT_TRUE(model->reloadCauseTable().empty());
}

TEST_F(GeneralMibTest, CountsTheRowsOfAUnit) {
  for (const ReloadCauseKey& key : {ReloadCauseKey{0, 0, 1}, ReloadCauseKey{1, 0, 1},
                                    ReloadCauseKey{1, 0, 2}, ReloadCauseKey{1, 7, 1}}) {
    model->reloadCauseTableIs(key, instance);
  }
  const auto reflected = Qel::genericIf(model);
  const auto rowsOf = [&](U32 unit) {
    return reflected->operation("reloadCauseTableRows", {unit}).toU32();
  };
  EXPECT_EQ(rowsOf(0), 1U);
  EXPECT_EQ(rowsOf(1), 3U);
  EXPECT_EQ(rowsOf(2), 0U);
  EXPECT_THROW(reflected->operation("reloadCauseTableRows", {}), Qel::TypeException);
  EXPECT_THROW(reflected->operation("reloadCauseTableRows", {"1"}), Qel::TypeException);
}

TEST_F(GeneralMibTest, RefusesReflectiveAccessThatItDoesNotOffer) {
  const auto reflected = Qel::genericIf(model);
  const Qel::GenericValue key = Qel::Ptr<Qel::GenericIf>(Qel::make<ReloadCauseKeyIf>(k));
  EXPECT_THROW(reflected->attributeIs("name", {"x"}), Qel::OperationNotSupportedException);
  EXPECT_THROW(reflected->attribute("reloadCauseTable"), Qel::OperationNotSupportedException);
  EXPECT_THROW(reflected->attributeIs("reloadCauseTable", {key}), Qel::TypeException);
  for (const char* operation : {"reloadCauseTable", "reloadCauseTableDel"}) {
    EXPECT_THROW(reflected->operation(operation, {}), Qel::TypeException);
    EXPECT_THROW(reflected->operation(operation, {key, key}), Qel::TypeException);
  }
  EXPECT_THROW(reflected->attributeIs("reloadCauseTable", {U32{1}, instance}), Qel::TypeException);
  EXPECT_THROW(reflected->attributeIs("reloadCauseTable", {key, model}), Qel::TypeException);
  EXPECT_TRUE(model->reloadCauseTable().empty());
}

TEST_F(GeneralMibTest, RefusesARowWithoutAReloadThroughTheReflectiveInterface) {
  const auto reflected = Qel::genericIf(model);
  const Qel::GenericValue key = Qel::Ptr<Qel::GenericIf>(Qel::make<ReloadCauseKeyIf>(k));
  for (const Qel::GenericValue& none :
       {Qel::GenericValue(), Qel::GenericValue(Qel::Ptr<System::ResetInstance>())}) {
    EXPECT_THAT(
        [&] {
          reflected->attributeIs("reloadCauseTable", {key, none});
        },
        ThrowsMessage<Qel::RangeException>(StrEq("null ValidPtr")));
  }
  EXPECT_TRUE(model->reloadCauseTable().empty());
  EXPECT_THAT(observer->heard, IsEmpty());
}

TEST_F(GeneralMibTest, AGenericNotifieePassesBothFormsOn) {
  std::vector<std::string> log;
  const auto generic =
      Qel::typeNode("MiscSnmp::GeneralMib")
          ->genericNotifiee(model, [&](const Qel::String& name, const Qel::GenericValue& key) {
            log.push_back(name.stdString() + " " +
                          (key.isNothing() ? "whole" : key.toGenericIf()->strep().stdString()));
          });
  const std::string changed = "reloadCauseTable " + valueToStrep(k).stdString();
  model->reloadCauseTableIs(k, instance);
  Qel::ptrCast<GeneralMib::NotifieeConst>(generic)->onReloadCauseTable();
  EXPECT_THAT(log, ElementsAre(changed, "reloadCauseTable whole"));
  // It does not keep the model alive, and hears of its end.
  model = nullptr;
  EXPECT_THAT(log, ElementsAre(changed, "reloadCauseTable whole", changed));
}

}  // namespace
}  // namespace MiscSnmp
