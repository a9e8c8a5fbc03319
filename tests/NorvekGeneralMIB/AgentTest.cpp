// The table as a manager meets it: through net-snmp's agent, its handlers and real PDUs.

#include <algorithm>
#include <map>
#include <optional>
#include <random>

#include "NorvekGeneralMIB/InProcessAgent.h"
#include "NorvekGeneralMIB/NorvekGeneralMIB.h"
#include "NorvekGeneralMIB/ReloadCauseTableHandler.h"
#include "NorvekGeneralMIB/ReloadCauseTableIteration.h"
#include "NorvekGeneralMIB/TableTest.h"

namespace NorvekGeneralMIB {
namespace {

using MiscSnmp::ReloadCauseKey;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

const Oid kTable = {1, 3, 6, 1, 4, 1, 32473, 3, 24, 1, 1};
constexpr oid kDescription = 4;
constexpr oid kTime = 5;
constexpr int kNoSuchObject = 128;
constexpr int kNoSuchInstance = 129;
constexpr int kNotWritable = 17;
constexpr int kGenErr = 5;

Oid nameOf(oid column, const std::vector<oid>& index = {}) {
  Oid name = kTable;
  name.insert(name.end(), {1, column});
  name.insert(name.end(), index.begin(), index.end());
  return name;
}

// At the end of everything the agent repeats the name that it was asked for.
bool isInTable(const Varbind& varbind) {
  return varbind.type != SNMP_ENDOFMIBVIEW && varbind.name.size() > kTable.size() &&
         std::equal(kTable.begin(), kTable.end(), varbind.name.begin());
}

// The DateAndTime of a second of the first minute of 1970.
std::string firstMinute(U32 second) {
  std::string octets("\x07\xb2\x01\x01\0\0\0\0+\0\0", 11);
  octets[6] = static_cast<char>(second);
  return octets;
}

// What net-snmp's iterator helper handed to the callbacks of the table.
struct HelperCalls {
  struct First {
    std::optional<unsigned> indexes;  // their number; none without a hint
    std::vector<long> values = {};
  };
  struct Handled {
    int processed;
    bool hasContext;
  };
  std::vector<First> firsts;
  std::vector<Handled> handled;
};

HelperCalls& helperCalls() {
  static HelperCalls calls;
  return calls;
}

extern "C" {

static netsnmp_variable_list* watchedFirst(void** loop, void** data, netsnmp_variable_list* put,
                                           netsnmp_iterator_info* iinfo) {
  HelperCalls::First first{};
  if (const auto* hint = static_cast<netsnmp_table_request_info*>(*loop)) {
    first.indexes = hint->number_indexes;
    for (const auto* each = hint->indexes; each != nullptr; each = each->next_variable) {
      first.values.push_back(each->val.integer != nullptr ? *each->val.integer : -1);
    }
  }
  helperCalls().firsts.push_back(first);
  return norvekReloadCauseTable_get_first_data_point(loop, data, put, iinfo);
}

static int watchedHandler(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                          netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests) {
  for (auto* each = requests; each != nullptr; each = each->next) {
    helperCalls().handled.push_back(
        {each->processed, netsnmp_extract_iterator_context(each) != nullptr});
  }
  return norvekReloadCauseTable_handler(handler, registration, reqinfo, requests);
}
}

class AgentTest : public TableTest {
 protected:
  AgentTest() {
    trace.levelIs("Snmp", 0);
    agent.get({kTable});  // starts it
    interposed() = {};
    helperCalls() = {};
  }
  ~AgentTest() override { unregister_NorvekGeneralMIB(""); }

  void registerTable() { init_NorvekGeneralMIB(""); }
  void registerWatchedTable() {
    interposed().beforeRegistering = [](netsnmp_handler_registration& registration,
                                        netsnmp_iterator_info& info) {
      info.get_first_data_point = &watchedFirst;
      registration.handler->access_method = &watchedHandler;
    };
    registerTable();
  }

  // What stands in the table, as a walk shows it: the first column, then the second.
  std::vector<Varbind> expected() const {
    std::vector<Varbind> table;
    for (const oid column : {kDescription, kTime}) {
      for (auto row = model->reloadCauseTable().iteratorConst(); row; row.advance()) {
        table.push_back({nameOf(column, {row->unitIndex(), row->reloadIndex(), row->causeIndex()}),
                         ASN_OCTET_STR,
                         column == kDescription ? "cause " + std::to_string(row->causeIndex())
                                                : firstMinute(row->causeIndex())});
      }
    }
    return table;
  }
  void twoCellsReloaded() {
    for (const U32 unit : {0U, 1U, 2U}) {
      for (U32 cause = 1; cause <= 3; ++cause) rowIs(unit, cause);
    }
  }

  Varbind get(const Oid& name) { return single(agent.get({name})); }
  Varbind next(const Oid& name) { return single(agent.getNext({name})); }
  std::vector<Varbind> walk() {
    std::vector<Varbind> seen;
    for (Varbind each = next(kTable); isInTable(each); each = next(each.name)) {
      seen.push_back(each);
    }
    return seen;
  }
  std::vector<Varbind> bulkWalk(long repetitions) {
    std::vector<Varbind> seen;
    for (Oid from = kTable;;) {
      const Response response = agent.getBulk({from}, 0, repetitions);
      EXPECT_EQ(response.status, 0);
      if (response.varbinds.empty()) return seen;
      for (const Varbind& each : response.varbinds) {
        if (!isInTable(each)) return seen;
        seen.push_back(each);
      }
      from = seen.back().name;
    }
  }

  InProcessAgent& agent = InProcessAgent::instance();

 private:
  static Varbind single(const Response& response) {
    EXPECT_EQ(response.status, 0);
    EXPECT_THAT(response.varbinds, SizeIs(1));
    return response.varbinds.empty() ? Varbind{} : response.varbinds.front();
  }
};

TEST_F(AgentTest, GetGetNextAndGetBulkShowTheSameTable) {
  twoCellsReloaded();
  registerTable();
  const std::vector<Varbind> table = expected();
  ASSERT_THAT(table, SizeIs(18));
  for (const Varbind& each : table) EXPECT_EQ(get(each.name), each);
  EXPECT_EQ(walk(), table);
  for (const long repetitions : {1L, 2L, 5L, 9L, 18L, 25L}) {
    EXPECT_EQ(bulkWalk(repetitions), table) << repetitions;
  }
}

TEST_F(AgentTest, OneGetMayAskForTheWholeTable) {
  twoCellsReloaded();
  registerTable();
  std::vector<Oid> names;
  for (const Varbind& each : expected()) names.push_back(each.name);
  std::reverse(names.begin(), names.end());
  std::vector<Varbind> table = agent.get(names).varbinds;
  std::reverse(table.begin(), table.end());
  EXPECT_EQ(table, expected());
}

TEST_F(AgentTest, OneGetNextMayFollowBothColumns) {
  twoCellsReloaded();
  registerTable();
  const auto both = agent.getNext({nameOf(kDescription), nameOf(kTime, {1, 0, 3})}).varbinds;
  EXPECT_THAT(both, ElementsAre(expected()[0], expected()[15]));
}

TEST_F(AgentTest, AMissingRowIsNoSuchInstance) {
  twoCellsReloaded();
  registerTable();
  EXPECT_EQ(get(nameOf(kDescription, {1, 0, 4})).type, kNoSuchInstance);
  EXPECT_EQ(get(nameOf(kTime, {9, 9, 9})).type, kNoSuchInstance);
  EXPECT_EQ(get(nameOf(kDescription, {0, 0, 0})).type, kNoSuchInstance);
}

TEST_F(AgentTest, AnIncompleteOrOverlongIndexIsNoSuchInstance) {
  twoCellsReloaded();
  registerTable();
  EXPECT_EQ(get(nameOf(kDescription, {1, 0})).type, kNoSuchInstance);
  EXPECT_EQ(get(nameOf(kDescription, {1, 0, 1, 1})).type, kNoSuchInstance);
}

TEST_F(AgentTest, AColumnThatCannotBeReadIsNoSuchObject) {
  twoCellsReloaded();
  registerTable();
  for (const oid column : {1UL, 3UL, 6UL}) {
    EXPECT_EQ(get(nameOf(column, {1, 0, 1})).type, kNoSuchObject) << column;
  }
}

TEST_F(AgentTest, MissingAndPresentRowsAreAnsweredInOnePdu) {
  twoCellsReloaded();
  registerTable();
  const auto both =
      agent.get({nameOf(kDescription, {7, 0, 1}), nameOf(kDescription, {1, 0, 2})}).varbinds;
  ASSERT_THAT(both, SizeIs(2));
  EXPECT_EQ(both[0].type, kNoSuchInstance);
  EXPECT_EQ(both[1].value, "cause 2");
}

TEST_F(AgentTest, SetIsNotWritable) {
  twoCellsReloaded();
  registerTable();
  const Response response = agent.set(nameOf(kDescription, {1, 0, 1}), "mine");
  EXPECT_EQ(response.status, kNotWritable);
  EXPECT_EQ(response.index, 1);
  EXPECT_EQ(get(nameOf(kDescription, {1, 0, 1})).value, "cause 1");
}

TEST_F(AgentTest, GetNextOfAnIncompleteIndexFindsTheFirstRowBehindIt) {
  twoCellsReloaded();
  registerTable();
  EXPECT_EQ(next(nameOf(kDescription)).name, nameOf(kDescription, {0, 0, 1}));
  EXPECT_EQ(next(nameOf(kDescription, {1})).name, nameOf(kDescription, {1, 0, 1}));
  EXPECT_EQ(next(nameOf(kDescription, {1, 0})).name, nameOf(kDescription, {1, 0, 1}));
  EXPECT_EQ(next(nameOf(kDescription, {1, 1})).name, nameOf(kDescription, {2, 0, 1}));
  EXPECT_EQ(next(nameOf(kDescription, {1, 0, 2, 5})).name, nameOf(kDescription, {1, 0, 3}));
}

TEST_F(AgentTest, GetNextOfAMissingRowFindsTheOneBehindIt) {
  rowIs(1, 1);
  rowIs(1, 5);
  rowIs(2, 1);
  registerTable();
  EXPECT_EQ(next(nameOf(kTime, {1, 0, 3})).name, nameOf(kTime, {1, 0, 5}));
  EXPECT_EQ(next(nameOf(kTime, {1, 7, 7})).name, nameOf(kTime, {2, 0, 1}));
  EXPECT_EQ(next(nameOf(kTime, {0, 0, 0})).name, nameOf(kTime, {1, 0, 1}));
}

TEST_F(AgentTest, GetNextBehindAColumnFindsTheNextOneAndThenLeavesTheTable) {
  twoCellsReloaded();
  registerTable();
  EXPECT_EQ(next(nameOf(kDescription, {2, 0, 3})).name, nameOf(kTime, {0, 0, 1}));
  EXPECT_EQ(next(nameOf(kDescription, {9})).name, nameOf(kTime, {0, 0, 1}));
  EXPECT_FALSE(isInTable(next(nameOf(kTime, {2, 0, 3}))));
  EXPECT_EQ(next(nameOf(1)).name, nameOf(kDescription, {0, 0, 1}));
}

TEST_F(AgentTest, UnitsBeyondTheSignedRangeAreWalkedInOrder) {
  rowIs(4294967295U, 1);
  rowIs(0, 1);
  rowIs(2147483648U, 1);
  registerTable();
  EXPECT_EQ(walk(), expected());
  EXPECT_EQ(get(nameOf(kDescription, {4294967295U, 0, 1})).value, "cause 1");
}

TEST_F(AgentTest, AnEmptyTableIsLeftAtOnce) {
  registerTable();
  EXPECT_THAT(walk(), IsEmpty());
  EXPECT_THAT(bulkWalk(10), IsEmpty());
  EXPECT_EQ(get(nameOf(kDescription, {1, 0, 1})).type, kNoSuchInstance);
}

TEST_F(AgentTest, AWalkSeesEachChangeOfTheTable) {
  rowIs(1, 1);
  rowIs(1, 3);
  registerTable();
  const Varbind first = next(kTable);
  EXPECT_EQ(first.name, nameOf(kDescription, {1, 0, 1}));
  model->reloadCauseTableDelAll();
  rowIs(0, 1);
  rowIs(1, 2);
  const Varbind second = next(first.name);
  EXPECT_EQ(second.name, nameOf(kDescription, {1, 0, 2}));
  EXPECT_EQ(next(second.name).name, nameOf(kTime, {0, 0, 1}));
}

TEST_F(AgentTest, WalksUnderRandomChangesStayInOrder) {
  registerTable();
  std::mt19937 random(20260105);
  std::uniform_int_distribution<U32> any(0, 5);
  for (int round = 0; round < 30; ++round) {
    Oid last = kTable;
    for (Varbind each = next(kTable); isInTable(each); each = next(each.name)) {
      ASSERT_LT(last, each.name);
      last = each.name;
      const ReloadCauseKey key(any(random), 0, any(random) + 1);
      if (!model->reloadCauseTableDel(key)) rowIs(key);
    }
    EXPECT_EQ(walk(), expected());
  }
}

TEST_F(AgentTest, TheLongestDescriptionIsServedAndALongerOneIsAnError) {
  model->reloadCauseTableIs({1, 0, 1}, support::reload({{std::string(1024, 'x'), 1.0}}));
  model->reloadCauseTableIs({2, 0, 1}, support::reload({{std::string(1025, 'x'), 1.0}}));
  registerTable();
  EXPECT_EQ(get(nameOf(kDescription, {1, 0, 1})).value, std::string(1024, 'x'));
  const Response response = agent.get({nameOf(kDescription, {2, 0, 1})});
  EXPECT_EQ(response.status, kGenErr);
  EXPECT_EQ(response.index, 1);
  EXPECT_EQ(get(nameOf(kTime, {2, 0, 1})).value, firstMinute(1));
}

TEST_F(AgentTest, ATooLongDescriptionFailsEveryRequestThatMeetsIt) {
  rowIs(1, 1);
  model->reloadCauseTableIs({2, 0, 1}, support::reload({{std::string(1025, 'x'), 1.0}}));
  rowIs(3, 1);
  registerTable();
  const Response following =
      agent.getNext({nameOf(kTime, {1, 0, 1}), nameOf(kDescription, {1, 0, 1})});
  EXPECT_EQ(following.status, kGenErr);
  EXPECT_EQ(following.index, 2);
  EXPECT_EQ(agent.getBulk({kTable}, 0, 10).status, kGenErr);
  EXPECT_EQ(next(nameOf(kDescription, {2, 0, 1})).name, nameOf(kDescription, {3, 0, 1}));
}

TEST_F(AgentTest, AGetOfADeepRowCostsNoWalk) {
  for (U32 cause = 1; cause <= 5000; ++cause) rowIs(1, cause);
  registerTable();
  trace.levelIs("Snmp", 2);
  EXPECT_EQ(get(nameOf(kDescription, {1, 0, 4321})).type, ASN_OCTET_STR);
  const auto advancing = std::count_if(
      trace.lines().begin(), trace.lines().end(),
      [](const std::string& line) { return line.find("advancing") != std::string::npos; });
  EXPECT_LE(advancing, 1);
  EXPECT_THAT(trace.lines(), Contains(HasSubstr("hintMatched=1")));
}

TEST_F(AgentTest, TheTableIsGoneOnceItIsUnregistered) {
  twoCellsReloaded();
  registerTable();
  EXPECT_EQ(walk(), expected());
  unregister_NorvekGeneralMIB("");
  EXPECT_THAT(walk(), IsEmpty());
  EXPECT_EQ(get(nameOf(kDescription, {1, 0, 1})).type, kNoSuchObject);
  registerTable();
  EXPECT_EQ(walk(), expected());
}

// What net-snmp's iterator helper does, as far as the table leans on it.
using IteratorHelperTest = AgentTest;

TEST_F(IteratorHelperTest, HintsOnTheFirstPassOfGetAndGetNext) {
  twoCellsReloaded();
  registerWatchedTable();
  get(nameOf(kDescription, {1, 0, 2}));
  next(nameOf(kDescription, {1, 0, 2}));
  ASSERT_THAT(helperCalls().firsts, SizeIs(2));
  for (const HelperCalls::First& first : helperCalls().firsts) {
    EXPECT_EQ(first.indexes, 3U);
    EXPECT_THAT(first.values, ElementsAre(1, 0, 2));
  }
}

TEST_F(IteratorHelperTest, HintsNothingOnTheSecondPassBehindAColumn) {
  twoCellsReloaded();
  registerWatchedTable();
  EXPECT_EQ(next(nameOf(kDescription, {2, 0, 3})).name, nameOf(kTime, {0, 0, 1}));
  ASSERT_THAT(helperCalls().firsts, SizeIs(2));
  EXPECT_EQ(helperCalls().firsts[0].indexes, 3U);
  EXPECT_EQ(helperCalls().firsts[1].indexes, std::nullopt);
}

TEST_F(IteratorHelperTest, IndexesThatAreAbsentReadZeroSoThatOnlyTheirNumberTells) {
  twoCellsReloaded();
  registerWatchedTable();
  next(nameOf(kDescription, {1, 0}));
  ASSERT_THAT(helperCalls().firsts, SizeIs(1));
  EXPECT_EQ(helperCalls().firsts[0].indexes, 2U);
  EXPECT_THAT(helperCalls().firsts[0].values, ElementsAre(1, 0, 0));
}

TEST_F(IteratorHelperTest, AFirstCallWithoutARowMustHaveReplacedTheHint) {
  registerWatchedTable();
  trace.levelIs("Snmp", 2);
  get(nameOf(kDescription, {1, 0, 2}));
  ASSERT_THAT(helperCalls().firsts, SizeIs(1));
  EXPECT_EQ(helperCalls().firsts[0].indexes, 3U);
  // The loop context that the callback left is what the helper frees.
  const auto& lines = trace.lines();
  const auto lineWith = [&](const std::string& part) {
    const auto found = std::find_if(lines.begin(), lines.end(), [&](const std::string& line) {
      return line.find(part) != std::string::npos;
    });
    return found == lines.end() ? std::string() : *found;
  };
  const std::string allocated = lineWith("allocated new loop context ");
  const std::string freed = lineWith("free_loop_context_at_end ");
  ASSERT_FALSE(allocated.empty());
  ASSERT_FALSE(freed.empty());
  EXPECT_THAT(allocated, HasSubstr(freed.substr(freed.rfind(' ') + 1) + ","));
}

TEST_F(IteratorHelperTest, CallsTheHandlerAtTheEndOfTheTableWithARequestThatIsProcessed) {
  twoCellsReloaded();
  registerWatchedTable();
  EXPECT_FALSE(isInTable(next(nameOf(kTime, {2, 0, 3}))));
  ASSERT_THAT(helperCalls().handled, SizeIs(1));
  EXPECT_EQ(helperCalls().handled[0].processed, 255);
  EXPECT_FALSE(helperCalls().handled[0].hasContext);
}

TEST_F(IteratorHelperTest, CallsTheHandlerOnAGetMissWithAnOpenRequestWithoutContext) {
  twoCellsReloaded();
  registerWatchedTable();
  EXPECT_EQ(get(nameOf(kDescription, {1, 0, 9})).type, kNoSuchInstance);
  ASSERT_THAT(helperCalls().handled, SizeIs(1));
  EXPECT_EQ(helperCalls().handled[0].processed, 0);
  EXPECT_FALSE(helperCalls().handled[0].hasContext);
}

TEST_F(IteratorHelperTest, PassesOneRequestAtATimeBehindTheSerializeHandler) {
  twoCellsReloaded();
  registerWatchedTable();
  agent.get({nameOf(kDescription, {1, 0, 1}), nameOf(kTime, {2, 0, 1})});
  ASSERT_THAT(helperCalls().firsts, SizeIs(2));
  EXPECT_THAT(helperCalls().firsts[0].values, ElementsAre(1, 0, 1));
  EXPECT_THAT(helperCalls().firsts[1].values, ElementsAre(2, 0, 1));
}

TEST_F(IteratorHelperTest, AnswersSeveralVarbindsWronglyWithoutTheSerializeHandler) {
  twoCellsReloaded();
  // net-snmp injects none of its own.
  interposed().injectingResult = 0;
  registerTable();
  const std::vector<Oid> names = {nameOf(kDescription, {2, 0, 3}), nameOf(kDescription, {0, 0, 1})};
  const auto asked = [&] {
    std::vector<std::string> values;
    for (const Varbind& each : agent.get(names).varbinds) values.push_back(each.value);
    return values;
  };
  EXPECT_THAT(asked(), Not(ElementsAre("cause 3", "cause 1")));
  unregister_NorvekGeneralMIB("");
  interposed().injectingResult.reset();
  registerTable();
  EXPECT_THAT(asked(), ElementsAre("cause 3", "cause 1"));
}

}  // namespace
}  // namespace NorvekGeneralMIB
