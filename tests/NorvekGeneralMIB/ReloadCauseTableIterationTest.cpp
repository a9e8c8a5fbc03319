#include "NorvekGeneralMIB/ReloadCauseTableIteration.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <random>

#include "NorvekGeneralMIB/ReloadCauseTable.h"
#include "NorvekGeneralMIB/TableTest.h"
#include "Qel/Exception.h"

namespace NorvekGeneralMIB {
namespace {

using MiscSnmp::ReloadCauseKey;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

constexpr char kFirst[] = "Snmp 2: norvekReloadCauseTable_get_first_data_point - ";
constexpr U32 kLargest = 4294967295U;

struct VarbindDelete {
  void operator()(netsnmp_variable_list* list) const { snmp_free_varbind(list); }
};
using Varbinds = std::unique_ptr<netsnmp_variable_list, VarbindDelete>;

Varbinds varbinds(const std::vector<long>& values) {
  netsnmp_variable_list* list = nullptr;
  for (const long value : values) {
    // Written past net-snmp, which cuts to 32 bits what it is asked to store.
    *snmp_varlist_add_variable(&list, nullptr, 0, ASN_UNSIGNED, &value, sizeof value)->val.integer =
        value;
  }
  return Varbinds(list);
}

netsnmp_variable_list& at(const Varbinds& list, int position) {
  netsnmp_variable_list* varbind = list.get();
  while (position-- > 0) varbind = varbind->next_variable;
  return *varbind;
}

// What the request's OID said, as net-snmp tells it.
struct Hint {
  explicit Hint(const std::vector<long>& values) : list(varbinds(values)) {
    info.number_indexes = static_cast<unsigned>(values.size());
    info.indexes = list.get();
  }
  Varbinds list;
  netsnmp_table_request_info info{};
};

class ReloadCauseTableIterationTest : public TableTest {
 protected:
  ReloadCauseTableIterationTest() { iinfo.myvoid = model.get(); }
  ~ReloadCauseTableIterationTest() override {
    trace.clear();
    if (loop != nullptr) norvekReloadCauseTable_free_loop_context_at_end(loop, &iinfo);
    if (data != nullptr) norvekReloadCauseTable_free_data_context(data, &iinfo);
  }

  // Each returns whether there is a row; its key then stands in the index varbinds.
  bool first(void* hint = nullptr) {
    loop = hint;
    void* untouched = &iinfo;
    auto* result =
        norvekReloadCauseTable_get_first_data_point(&loop, &untouched, indexes.get(), &iinfo);
    EXPECT_EQ(untouched, &iinfo);
    return isRow(result);
  }
  bool first(Hint& hint) { return first(&hint.info); }
  bool next() {
    return isRow(norvekReloadCauseTable_get_next_data_point(&loop, &data, indexes.get(), &iinfo));
  }
  void* dataContext() { return norvekReloadCauseTable_make_data_context(loop, &iinfo); }

  ReloadCauseKey key() const {
    std::vector<U32> fields;
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(at(indexes, i).type, 0x42);
      fields.push_back(static_cast<U32>(*at(indexes, i).val.integer));
    }
    return {fields[0], fields[1], fields[2]};
  }
  std::vector<ReloadCauseKey> rest() {
    std::vector<ReloadCauseKey> keys;
    while (next()) keys.push_back(key());
    return keys;
  }

  Lines hintLines(const void* hint, int count) const {
    return {std::string(kFirst) + "*hint = " + text(hint) +
            ", number_indexes = " + std::to_string(count)};
  }
  void addAllocated(Lines& lines, bool matched) const {
    lines.push_back(std::string(kFirst) + "allocated new loop context " + text(loop) +
                    ", hintMatched=" + (matched ? "1" : "0"));
  }
  static void addRow(Lines& lines, const ReloadCauseKey& row) {
    const std::string start =
        "Snmp 2: norvekReloadCauseTableIterationHelper - iterator has another value: ";
    lines.push_back(start + "unitIndex=" + std::to_string(row.unitIndex()));
    lines.push_back(start + "reloadIndex=" + std::to_string(row.instanceIndex()));
    lines.push_back(start + "causeIndex=" + std::to_string(row.causeIndex()));
  }
  static void addEnd(Lines& lines) {
    lines.push_back("Snmp 2: norvekReloadCauseTableIterationHelper - iterator is at end");
  }

  netsnmp_iterator_info iinfo{};
  Varbinds indexes = varbinds({0, 0, 0});
  void* loop = nullptr;
  void* data = nullptr;

 private:
  bool isRow(netsnmp_variable_list* result) const {
    EXPECT_TRUE(result == nullptr || result == indexes.get());
    return result != nullptr;
  }
};

using IterationTest = ReloadCauseTableIterationTest;

TEST_F(IterationTest, AnEmptyTableHasNoFirstRowButALoopContextThatIsFreed) {
  EXPECT_FALSE(first());
  ASSERT_NE(loop, nullptr);
  Lines expected = hintLines(nullptr, 0);
  addAllocated(expected, false);
  addEnd(expected);
  EXPECT_EQ(trace.takeLines(), expected);
  norvekReloadCauseTable_free_loop_context_at_end(loop, &iinfo);
  EXPECT_THAT(trace.lines(),
              ElementsAre("Snmp 2: norvekReloadCauseTable_free_loop_context_at_end " + text(loop)));
  loop = nullptr;
}

TEST_F(IterationTest, ReplacesTheHintEvenWhenThereIsNoRow) {
  Hint hint({1, 2, 3});
  EXPECT_FALSE(first(hint));
  EXPECT_NE(loop, static_cast<void*>(&hint.info));
}

TEST_F(IterationTest, StartsAtTheRowThatAHintNames) {
  rowIs(0, 1);
  rowIs({1, 2, 3});
  Hint hint({1, 2, 3});
  EXPECT_TRUE(first(hint));
  EXPECT_EQ(key(), ReloadCauseKey(1, 2, 3));
  Lines expected = hintLines(&hint.info, 3);
  expected.push_back("Snmp 2: hint component norvekReloadUnitIndex is '1'");
  expected.push_back("Snmp 2: hint component norvekReloadIndex is '2'");
  expected.push_back("Snmp 2: hint component norvekReloadCauseIndex is '3'");
  addAllocated(expected, true);
  addRow(expected, {1, 2, 3});
  EXPECT_EQ(trace.lines(), expected);
}

TEST_F(IterationTest, FillsTheIndexesThatCouldBeSetUp) {
  rowIs({1, 2, 3});
  indexes = varbinds({0, 0});
  EXPECT_TRUE(first());
  EXPECT_EQ(*at(indexes, 0).val.integer, 1);
  EXPECT_EQ(*at(indexes, 1).val.integer, 2);
  EXPECT_EQ(at(indexes, 1).next_variable, nullptr);
}

TEST_F(IterationTest, WritesAnIndexWhateverStoodInItsVarbind) {
  rowIs({0, 2, 3});
  netsnmp_variable_list& unit = at(indexes, 0);
  unit.val_len = 0;  // type and octets are right
  netsnmp_variable_list& reload = at(indexes, 1);
  *reload.val.integer = 2;
  reload.type = ASN_INTEGER;
  netsnmp_variable_list& cause = at(indexes, 2);
  cause.val.integer = static_cast<long*>(std::calloc(1, sizeof(long)));  // not in the varbind
  *cause.val.integer = 4;
  ASSERT_TRUE(first());
  EXPECT_EQ(key(), ReloadCauseKey(0, 2, 3));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(at(indexes, i).type, ASN_UNSIGNED);
    EXPECT_EQ(at(indexes, i).val_len, sizeof(long));
  }
}

TEST_F(IterationTest, AHintForAMissingRowStartsAtTheFirstRowNotAtTheNextOne) {
  rowIs({1, 2, 4});
  rowIs({0, 0, 1});
  Hint hint({1, 2, 3});
  EXPECT_TRUE(first(hint));
  EXPECT_EQ(key(), ReloadCauseKey(0, 0, 1));
  Lines expected = hintLines(&hint.info, 3);
  expected.push_back("Snmp 2: hint component norvekReloadUnitIndex is '1'");
  expected.push_back("Snmp 2: hint component norvekReloadIndex is '2'");
  expected.push_back("Snmp 2: hint component norvekReloadCauseIndex is '3'");
  expected.push_back(std::string(kFirst) +
                     "key 'Value('MiscSnmp::ReloadCauseKey', ** {'unitIndex': 1, "
                     "'instanceIndex': 2, 'causeIndex': 3})' not found in table");
  addAllocated(expected, false);
  addRow(expected, {0, 0, 1});
  EXPECT_EQ(trace.lines(), expected);
}

TEST_F(IterationTest, AHintBehindTheLastRowStartsAtTheFirst) {
  rowIs(0, 1);
  Hint hint({9, 9, 9});
  EXPECT_TRUE(first(hint));
  EXPECT_EQ(key(), ReloadCauseKey(0, 0, 1));
}

TEST_F(IterationTest, AHintWithTwoComponentsIsNotRead) {
  rowIs(1, 1);
  rowIs(1, 2);
  Hint hint({1, 0});
  EXPECT_TRUE(first(hint));
  EXPECT_EQ(key(), ReloadCauseKey(1, 0, 1));
  Lines expected = hintLines(&hint.info, 2);
  addAllocated(expected, false);
  addRow(expected, {1, 0, 1});
  EXPECT_EQ(trace.lines(), expected);
}

TEST_F(IterationTest, AHintWithFourComponentsIsNotRead) {
  rowIs(1, 1);
  Hint hint({1, 0, 1, 7});
  EXPECT_TRUE(first(hint));
  EXPECT_THAT(trace.lines(), Not(Contains(testing::HasSubstr("hint component"))));
}

TEST_F(IterationTest, AHintOfAWrongTypeIsNamedAndTheOtherComponentsAreStillRead) {
  rowIs(0, 1);
  rowIs({1, 2, 3});
  Hint hint({1, 2, 3});
  at(hint.list, 0).type = ASN_INTEGER;
  EXPECT_TRUE(first(hint));
  EXPECT_EQ(key(), ReloadCauseKey(0, 0, 1));
  Lines expected = hintLines(&hint.info, 3);
  expected.push_back(
      "Snmp 0: hint for norvekReloadUnitIndex has incorrect type! Expecting 66 but got 2");
  expected.push_back("Snmp 2: hint component norvekReloadIndex is '2'");
  expected.push_back("Snmp 2: hint component norvekReloadCauseIndex is '3'");
  expected.push_back(std::string(kFirst) + "needed 3 components, found only 2");
  addAllocated(expected, false);
  addRow(expected, {0, 0, 1});
  EXPECT_EQ(trace.lines(), expected);
}

TEST_F(IterationTest, EveryWrongTypeIsNamed) {
  Hint hint({1, 2, 3});
  at(hint.list, 0).type = ASN_INTEGER;
  at(hint.list, 1).type = ASN_OCTET_STR;
  at(hint.list, 2).type = ASN_COUNTER;
  EXPECT_FALSE(first(hint));
  EXPECT_THAT(
      trace.lines(),
      testing::IsSupersetOf(
          {"Snmp 0: hint for norvekReloadUnitIndex has incorrect type! Expecting 66 but got 2",
           "Snmp 0: hint for norvekReloadIndex has incorrect type! Expecting 66 but got 4",
           "Snmp 0: hint for norvekReloadCauseIndex has incorrect type! Expecting 66 but got 65",
           "Snmp 2: norvekReloadCauseTable_get_first_data_point - needed 3 components, found only "
           "0"}));
}

TEST_F(IterationTest, EveryComponentOutOfRangeIsNamedWithTheReason) {
  rowIs(0, 1);
  Hint hint({4294967296, 2, -1});
  trace.levelIs("Qel", 1);  // where a range error that nobody expects is reported
  EXPECT_TRUE(first(hint));
  EXPECT_EQ(key(), ReloadCauseKey(0, 0, 1));
  Lines expected = hintLines(&hint.info, 3);
  expected.push_back(
      "Snmp 0: hint for index norvekReloadUnitIndex of norvekReloadCauseTable is out of range! "
      "4294967296 is not an unsigned 32-bit number");
  expected.push_back("Snmp 2: hint component norvekReloadIndex is '2'");
  expected.push_back(
      "Snmp 0: hint for index norvekReloadCauseIndex of norvekReloadCauseTable is out of range! "
      "-1 is not an unsigned 32-bit number");
  expected.push_back(std::string(kFirst) + "needed 3 components, found only 1");
  addAllocated(expected, false);
  addRow(expected, {0, 0, 1});
  EXPECT_EQ(trace.lines(), expected);
}

TEST_F(IterationTest, AComponentOutOfRangeInTheMiddleIsNamed) {
  Hint hint({1, 4294967296, 3});
  EXPECT_FALSE(first(hint));
  EXPECT_THAT(trace.lines(),
              Contains("Snmp 0: hint for index norvekReloadIndex of norvekReloadCauseTable is out "
                       "of range! 4294967296 is not an unsigned 32-bit number"));
}

TEST_F(IterationTest, AHintWhoseListEndsEarlyIsCounted) {
  rowIs(1, 1);
  Hint hint({1, 0});
  hint.info.number_indexes = 3;
  EXPECT_TRUE(first(hint));
  Lines expected = hintLines(&hint.info, 3);
  expected.push_back("Snmp 2: hint component norvekReloadUnitIndex is '1'");
  expected.push_back("Snmp 2: hint component norvekReloadIndex is '0'");
  expected.push_back(std::string(kFirst) + "needed 3 components, found only 2");
  addAllocated(expected, false);
  addRow(expected, {1, 0, 1});
  EXPECT_EQ(trace.lines(), expected);
}

TEST_F(IterationTest, AHintOfTheLargestNumbersIsMatched) {
  rowIs(0, 1);
  rowIs({kLargest, kLargest, kLargest});
  Hint hint({4294967295, 4294967295, 4294967295});
  EXPECT_TRUE(first(hint));
  EXPECT_EQ(key(), ReloadCauseKey(kLargest, kLargest, kLargest));
}

TEST_F(IterationTest, ARangeErrorWhileTheHintIsUsedStartsAtTheFirstRow) {
  rowIs(0, 1);
  rowIs(1, 1);
  Hint hint({1, 0, 1});
  trace.levelIs("Snmp", 0);
  interposed().allocationError = std::make_exception_ptr(Qel::RangeException("no room"));
  interposed().allocationSize = sizeof(RowIterator);
  EXPECT_TRUE(first(hint));
  EXPECT_EQ(key(), ReloadCauseKey(0, 0, 1));
  EXPECT_THAT(trace.lines(),
              ElementsAre("Snmp 0: Bad hint for norvekReloadCauseTable: MiscSnmp::ReloadCauseKey "
                          "ctor threw exception: no room"));
}

TEST_F(IterationTest, NoExceptionLeavesTheFirstCall) {
  rowIs(0, 1);
  Hint hint({7, 7, 7});
  trace.levelIs("Snmp", 0);
  interposed().allocationError = std::make_exception_ptr(std::bad_alloc());
  interposed().allocationSize = sizeof(RowIterator);
  EXPECT_FALSE(first(hint));
  EXPECT_EQ(loop, nullptr);
  EXPECT_THAT(trace.lines(),
              ElementsAre("Snmp 0: norvekReloadCauseTable_get_first_data_point failed: "
                          "std::bad_alloc"));
}

TEST_F(IterationTest, NoExceptionLeavesTheMakingOfADataContext) {
  rowIs(0, 1);
  first();
  trace.levelIs("Snmp", 0);
  trace.clear();
  interposed().allocationError = std::make_exception_ptr(std::bad_alloc());
  interposed().allocationSize = sizeof(RowIterator);
  EXPECT_EQ(dataContext(), nullptr);
  EXPECT_THAT(trace.lines(), ElementsAre("Snmp 0: norvekReloadCauseTable_make_data_context failed: "
                                         "std::bad_alloc"));
}

TEST_F(IterationTest, NextVisitsEveryRowInKeyOrderAndEnds) {
  rowIs(1, 2);
  rowIs(0, 1);
  rowIs(1, 1);
  ASSERT_TRUE(first());
  EXPECT_EQ(key(), ReloadCauseKey(0, 0, 1));
  EXPECT_THAT(rest(), ElementsAre(ReloadCauseKey(1, 0, 1), ReloadCauseKey(1, 0, 2)));
  EXPECT_FALSE(next());
}

TEST_F(IterationTest, NextTracesItsContextsAndTheRow) {
  rowIs(0, 1);
  rowIs(1, 1);
  first();
  data = dataContext();
  trace.clear();
  ASSERT_TRUE(next());
  const std::string advancing =
      "Snmp 2: norvekReloadCauseTable_get_next_data_point - advancing loop context " + text(loop) +
      " ; data context " + text(data);
  Lines expected = {advancing};
  addRow(expected, {1, 0, 1});
  EXPECT_EQ(trace.takeLines(), expected);
  EXPECT_FALSE(next());
  expected = {advancing};
  addEnd(expected);
  EXPECT_EQ(trace.takeLines(), expected);
  EXPECT_FALSE(next());
  EXPECT_THAT(trace.lines(),
              ElementsAre("Snmp 2: norvekReloadCauseTable_get_next_data_point - at end of loop "
                          "context " +
                          text(loop)));
}

TEST_F(IterationTest, NextWithoutALoopContextIsAtTheEnd) {
  EXPECT_FALSE(next());
  EXPECT_THAT(
      trace.lines(),
      ElementsAre("Snmp 2: norvekReloadCauseTable_get_next_data_point - at end of loop context 0"));
}

TEST_F(IterationTest, NextTakesADataContextAlongAndMakesNone) {
  rowIs(0, 1);
  rowIs(1, 1);
  rowIs(2, 1);
  first();
  next();
  EXPECT_EQ(data, nullptr);
  data = dataContext();
  EXPECT_EQ(static_cast<RowIterator*>(data)->key(), ReloadCauseKey(1, 0, 1));
  next();
  EXPECT_EQ(static_cast<RowIterator*>(data)->key(), ReloadCauseKey(2, 0, 1));
  next();
  EXPECT_FALSE(*static_cast<RowIterator*>(data));
}

TEST_F(IterationTest, ADataContextIsAPlaceOfItsOwn) {
  rowIs(0, 1);
  rowIs(1, 1);
  first();
  trace.clear();
  void* const kept = dataContext();
  EXPECT_THAT(trace.takeLines(),
              ElementsAre("Snmp 2: norvekReloadCauseTable_make_data_context - allocated data "
                          "context " +
                          text(kept) + " for loop context " + text(loop)));
  next();
  // Removed, and still readable for who stands on it.
  model->reloadCauseTableDel({0, 0, 1});
  EXPECT_EQ((*static_cast<RowIterator*>(kept))->causeDesc(), "cause 1");
  trace.clear();
  norvekReloadCauseTable_free_data_context(kept, &iinfo);
  EXPECT_THAT(trace.lines(),
              ElementsAre("Snmp 2: norvekReloadCauseTable_free_data_context " + text(kept)));
}

TEST_F(IterationTest, FreeingReleasesTheRow) {
  rowIs(0, 1);
  const auto row = model->reloadCauseTable()[{0, 0, 1}];
  first();
  void* const kept = dataContext();
  EXPECT_EQ(row->references(), 4U);
  norvekReloadCauseTable_free_data_context(kept, &iinfo);
  EXPECT_EQ(row->references(), 3U);
  norvekReloadCauseTable_free_loop_context_at_end(loop, &iinfo);
  loop = nullptr;
  EXPECT_EQ(row->references(), 2U);
}

TEST_F(IterationTest, FreeingNothingIsTraced) {
  norvekReloadCauseTable_free_data_context(nullptr, &iinfo);
  norvekReloadCauseTable_free_loop_context_at_end(nullptr, &iinfo);
  EXPECT_THAT(trace.lines(),
              ElementsAre("Snmp 2: norvekReloadCauseTable_free_data_context 0",
                          "Snmp 2: norvekReloadCauseTable_free_loop_context_at_end 0"));
}

TEST_F(IterationTest, ARowRemovedBetweenTwoCallsIsNotVisited) {
  for (U32 cause = 1; cause <= 4; ++cause) rowIs(1, cause);
  first();
  model->reloadCauseTableDel({1, 0, 1});
  model->reloadCauseTableDel({1, 0, 2});
  EXPECT_THAT(rest(), ElementsAre(ReloadCauseKey(1, 0, 3), ReloadCauseKey(1, 0, 4)));
}

TEST_F(IterationTest, ARowAddedBehindThePlaceIsVisitedAndOneBeforeItIsNot) {
  rowIs(1, 1);
  rowIs(1, 3);
  first();
  rowIs(0, 1);
  rowIs(1, 2);
  EXPECT_THAT(rest(), ElementsAre(ReloadCauseKey(1, 0, 2), ReloadCauseKey(1, 0, 3)));
}

TEST_F(IterationTest, RowsRebuiltBetweenTwoCallsAreNeitherRepeatedNorSkipped) {
  for (U32 cause = 1; cause <= 3; ++cause) rowIs(1, cause);
  first();
  model->reloadCauseTableDelAll();
  for (U32 cause = 1; cause <= 3; ++cause) rowIs(1, cause);
  EXPECT_THAT(rest(), ElementsAre(ReloadCauseKey(1, 0, 2), ReloadCauseKey(1, 0, 3)));
}

TEST_F(IterationTest, EndsWhenTheTableIsEmptiedBetweenTwoCalls) {
  rowIs(1, 1);
  rowIs(1, 2);
  first();
  model->reloadCauseTableDelAll();
  EXPECT_FALSE(next());
}

TEST_F(IterationTest, TheLargestUnitComesLast) {
  rowIs(kLargest, 1);
  rowIs(0, 1);
  rowIs(2147483648U, 1);
  first();
  EXPECT_EQ(key(), ReloadCauseKey(0, 0, 1));
  EXPECT_THAT(rest(),
              ElementsAre(ReloadCauseKey(2147483648U, 0, 1), ReloadCauseKey(kLargest, 0, 1)));
}

TEST_F(IterationTest, AWalkUnderRandomChangesVisitsWhatStaysExactlyOnceAndInOrder) {
  trace.levelIs("Snmp", 0);
  std::mt19937 random(20260104);
  std::uniform_int_distribution<U32> any(0, 9);
  for (int round = 0; round < 500; ++round) {
    model->reloadCauseTableDelAll();
    // Odd causes stay throughout; even ones come and go.
    for (U32 unit = 0; unit < 3; ++unit) {
      for (U32 cause = 1; cause <= 9; cause += 2) rowIs(unit, cause);
    }
    std::vector<ReloadCauseKey> visited;
    std::vector<ReloadCauseKey> stayed;
    for (bool isRow = first(); isRow; isRow = next()) {
      visited.push_back(key());
      EXPECT_NE(model->reloadCauseTable()[key()], nullptr);
      if (key().causeIndex() % 2 == 1) stayed.push_back(key());
      const ReloadCauseKey changing(any(random) % 3, 0, any(random) / 2 * 2);
      if (!model->reloadCauseTableDel(changing)) rowIs(changing);
    }
    norvekReloadCauseTable_free_loop_context_at_end(loop, &iinfo);
    loop = nullptr;
    EXPECT_TRUE(std::is_sorted(visited.begin(), visited.end()));
    EXPECT_EQ(std::adjacent_find(visited.begin(), visited.end()), visited.end());
    EXPECT_EQ(stayed.size(), 15U);
  }
}

}  // namespace
}  // namespace NorvekGeneralMIB
