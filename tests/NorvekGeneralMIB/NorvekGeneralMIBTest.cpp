#include "NorvekGeneralMIB/NorvekGeneralMIB.h"

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>

#include "NorvekGeneralMIB/InProcessAgent.h"
#include "NorvekGeneralMIB/NorvekGeneralMIB_HandlerRegistration.h"
#include "NorvekGeneralMIB/ReloadCauseTableHandler.h"
#include "NorvekGeneralMIB/ReloadCauseTableIteration.h"
#include "NorvekGeneralMIB/TableTest.h"
#include "Snmp/AutoRegistree.h"

namespace NorvekGeneralMIB {
namespace {

using Snmp::MibContext;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

const Oid kTable = {1, 3, 6, 1, 4, 1, 32473, 3, 24, 1, 1};
constexpr char kInitializing[] =
    "initialize_table_norvekReloadCauseTable initializing oid .1.3.6.1.4.1.32473.3.24.1.1 in "
    "context ";

class NorvekGeneralMIBTest : public TableTest {
 protected:
  NorvekGeneralMIBTest() {
    InProcessAgent::instance();
    // Names beside numbers need MIB files, which the agent does without.
    netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_OID_OUTPUT_FORMAT,
                       NETSNMP_OID_OUTPUT_NUMERIC);
    trace.levelIs("Snmp", 8);
    interposed() = {};
  }

  static Oid oidOf(const netsnmp_handler_registration& registration) {
    return Oid(registration.rootoid, registration.rootoid + registration.rootoid_len);
  }
  // The handlers from the one that net-snmp calls first.
  static Lines handlers(const netsnmp_handler_registration& registration) {
    Lines names;
    for (auto* each = registration.handler; each != nullptr; each = each->next) {
      names.emplace_back(each->handler_name);
    }
    return names;
  }
  static Lines served() {
    Lines pairs;
    for (const MibContext& each : Snmp::mibContexts()) {
      pairs.push_back(each.context.stdString() + "/" + each.module.stdString());
    }
    return pairs;
  }
};

// Whether this process may write there, by the kernel's map of its memory.
bool isWritable(const void* address) {
  const auto wanted = reinterpret_cast<std::uintptr_t>(address);
  std::ifstream maps("/proc/self/maps");
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
  char dash = 0;
  std::string rights;
  for (std::string rest; maps >> std::hex >> begin >> dash >> end >> rights;) {
    if (begin <= wanted && wanted < end) return rights[1] == 'w';
    std::getline(maps, rest);
  }
  ADD_FAILURE() << address << " is nowhere";
  return true;
}

using RegistrationTest = NorvekGeneralMIBTest;
using RegistrationDeathTest = NorvekGeneralMIBTest;

TEST_F(RegistrationTest, TheDefaultContextGetsTheTable) {
  init_NorvekGeneralMIB("");
  const auto* registration = interposed().registered;
  ASSERT_NE(registration, nullptr);
  EXPECT_STREQ(registration->handlerName, "norvekReloadCauseTable_");
  EXPECT_EQ(oidOf(*registration), kTable);
  EXPECT_EQ(registration->modes & HANDLER_CAN_RWRITE, HANDLER_CAN_RONLY);
  EXPECT_EQ(registration->my_reg_void, model.get());
  EXPECT_THAT(interposed().columnInfos, SizeIs(1));
  EXPECT_THAT(served(), ElementsAre("/NorvekGeneralMIB"));
  EXPECT_THAT(trace.lines(),
              ElementsAre(std::string("Snmp 1: ") + kInitializing + "\"\"",
                          "Snmp 8: Initialized table norvekReloadCauseTable in context \"\""));
  unregister_NorvekGeneralMIB("");
}

TEST_F(RegistrationTest, TheRecordsHandedOverAreComplete) {
  int calls = 0;
  interposed().beforeRegistering = [&](netsnmp_handler_registration& registration,
                                       netsnmp_iterator_info& info) {
    ++calls;
    EXPECT_EQ(registration.handler->access_method, &norvekReloadCauseTable_handler);
    EXPECT_EQ(registration.modes, HANDLER_CAN_RONLY);
    EXPECT_EQ(registration.my_reg_void, model.get());
    EXPECT_EQ(info.refcnt, 0);
    EXPECT_EQ(info.get_first_data_point, &norvekReloadCauseTable_get_first_data_point);
    EXPECT_EQ(info.get_next_data_point, &norvekReloadCauseTable_get_next_data_point);
    EXPECT_EQ(info.make_data_context, &norvekReloadCauseTable_make_data_context);
    EXPECT_EQ(info.free_loop_context, nullptr);
    EXPECT_EQ(info.free_data_context, &norvekReloadCauseTable_free_data_context);
    EXPECT_EQ(info.free_loop_context_at_end, &norvekReloadCauseTable_free_loop_context_at_end);
    EXPECT_EQ(info.myvoid, model.get());
    EXPECT_EQ(info.flags, 3);
    const netsnmp_table_registration_info& table = *info.table_reginfo;
    EXPECT_EQ(table.min_column, 4U);
    EXPECT_EQ(table.max_column, 5U);
    int indexes = 0;
    for (const auto* each = table.indexes; each != nullptr; each = each->next_variable) {
      EXPECT_EQ(each->type, 0x42);
      ++indexes;
    }
    EXPECT_EQ(indexes, 3);
    const netsnmp_column_info& columns = *table.valid_columns;
    EXPECT_FALSE(columns.isRange);
    ASSERT_EQ(columns.list_count, 2);
    EXPECT_EQ(columns.details.list[0], 4U);
    EXPECT_EQ(columns.details.list[1], 5U);
    EXPECT_EQ(columns.next, nullptr);
    EXPECT_TRUE(interposed().columnInfos.contains(table.valid_columns));
  };
  init_NorvekGeneralMIB("");
  EXPECT_EQ(calls, 1);
  unregister_NorvekGeneralMIB("");
}

TEST_F(RegistrationTest, WhatDescribesTheTableCannotBeChanged) {
  const unsigned* columns = nullptr;
  interposed().beforeRegistering = [&](netsnmp_handler_registration&, netsnmp_iterator_info& info) {
    columns = info.table_reginfo->valid_columns->details.list;
  };
  init_NorvekGeneralMIB("");
  EXPECT_FALSE(isWritable(interposed().registeredOid));
  EXPECT_FALSE(isWritable(columns));
  EXPECT_TRUE(isWritable(&columns));
  unregister_NorvekGeneralMIB("");
}

TEST_F(RegistrationTest, IsRecordedAsServedOnceTheTableStands) {
  Lines servedBefore{"never called"};
  interposed().beforeRegistering = [&](netsnmp_handler_registration&, netsnmp_iterator_info&) {
    servedBefore = served();
  };
  init_NorvekGeneralMIB("");
  EXPECT_THAT(servedBefore, IsEmpty());
  EXPECT_THAT(served(), ElementsAre("/NorvekGeneralMIB"));
  unregister_NorvekGeneralMIB("");
}

TEST_F(RegistrationTest, RequestsAreSerializedInFrontOfTheIterator) {
  init_NorvekGeneralMIB("");
  EXPECT_THAT(handlers(*interposed().registered),
              ElementsAre("serialize", "bulk_to_next", "table", "table_iterator",
                          "norvekReloadCauseTable_"));
  unregister_NorvekGeneralMIB("");
}

TEST_F(RegistrationTest, RegisteringHoldsNoReferenceToTheModel) {
  const U32 references = model->references();
  init_NorvekGeneralMIB("");
  EXPECT_EQ(model->references(), references);
  unregister_NorvekGeneralMIB("");
}

TEST_F(RegistrationTest, AnotherContextIsRefusedAndYetRecorded) {
  init_NorvekGeneralMIB("blue");
  EXPECT_EQ(interposed().registered, nullptr);
  EXPECT_THAT(interposed().columnInfos, IsEmpty());
  EXPECT_THAT(served(), ElementsAre("blue/NorvekGeneralMIB"));
  EXPECT_THAT(trace.takeLines(),
              ElementsAre(std::string("Snmp 1: ") + kInitializing + "\"blue\"",
                          "Snmp 2: initialize_table_norvekReloadCauseTable in context \"blue\" "
                          "kavraPathWithContext not specified "));
  unregister_NorvekGeneralMIB("blue");
  EXPECT_THAT(interposed().unregistered, IsEmpty());
  EXPECT_THAT(served(), IsEmpty());
}

TEST_F(RegistrationTest, TheRegistrationOfAnotherContextIsMadeAndFreed) {
  init_NorvekGeneralMIB("blue");
  EXPECT_NE(interposed().registeredOid, nullptr);
  EXPECT_THAT(interposed().registrations, IsEmpty());
  unregister_NorvekGeneralMIB("blue");
}

TEST_F(RegistrationTest, AnotherContextNeedsNoModel) {
  SnmpUtil::rootIs(nullptr);
  init_NorvekGeneralMIB("blue");
  unregister_NorvekGeneralMIB("blue");
  EXPECT_THAT(interposed().unregistered, IsEmpty());
}

TEST_F(RegistrationTest, TheTableAloneIsNotRecordedAsServed) {
  initialize_table_norvekReloadCauseTable("");
  EXPECT_NE(interposed().registered, nullptr);
  EXPECT_THAT(served(), IsEmpty());
  unregister_NorvekGeneralMIB("");
}

TEST_F(RegistrationTest, UnregisteringAContextThatNeverWasUnregistersNothing) {
  Snmp::registerMibContext("green", "NorvekGeneralMIB");
  unregister_NorvekGeneralMIB("green");
  EXPECT_THAT(interposed().unregistered, IsEmpty());
  EXPECT_THAT(served(), IsEmpty());
  EXPECT_THAT(trace.lines(),
              ElementsAre("Snmp 2: Unregistering NorvekGeneralMIB in context \"green\""));
}

TEST_F(RegistrationTest, UnregisteringTakesBackAllThatWasRecorded) {
  init_NorvekGeneralMIB("");
  auto* const registration = interposed().registered;
  trace.clear();
  unregister_NorvekGeneralMIB("");
  EXPECT_THAT(interposed().unregistered, ElementsAre(registration));
  EXPECT_THAT(interposed().columnInfos, IsEmpty());
  EXPECT_THAT(served(), IsEmpty());
  EXPECT_THAT(trace.lines(), ElementsAre("Snmp 2: Unregistering NorvekGeneralMIB in context \"\""));
  // Nothing stands recorded any more.
  unregister_NorvekGeneralMIB("");
  EXPECT_THAT(interposed().unregistered, SizeIs(1));
}

TEST_F(RegistrationTest, TheColumnsOutliveTheRegistrationThatPointsAtThem) {
  init_NorvekGeneralMIB("");
  std::size_t columnsThen = 0;
  interposed().beforeUnregistering = [&] { columnsThen = interposed().columnInfos.size(); };
  unregister_NorvekGeneralMIB("");
  EXPECT_EQ(columnsThen, 1U);
  EXPECT_THAT(interposed().columnInfos, IsEmpty());
}

TEST_F(RegistrationTest, FreesEveryColumnRecordOfAChain) {
  interposed().beforeRegistering = [](netsnmp_handler_registration&, netsnmp_iterator_info& info) {
    netsnmp_column_info* last = info.table_reginfo->valid_columns;
    for (int i = 0; i < 2; ++i) {
      last->next = static_cast<netsnmp_column_info*>(std::calloc(1, sizeof *last));
      last = last->next;
      last->isRange = 1;
    }
  };
  init_NorvekGeneralMIB("");
  EXPECT_THAT(interposed().columnInfos, SizeIs(3));
  unregister_NorvekGeneralMIB("");
  EXPECT_THAT(interposed().columnInfos, IsEmpty());
}

TEST_F(RegistrationTest, UnregisteringOneContextLeavesTheOther) {
  init_NorvekGeneralMIB("");
  init_NorvekGeneralMIB("blue");
  unregister_NorvekGeneralMIB("blue");
  EXPECT_THAT(interposed().unregistered, IsEmpty());
  EXPECT_THAT(interposed().columnInfos, SizeIs(1));
  EXPECT_THAT(served(), ElementsAre("/NorvekGeneralMIB"));
  unregister_NorvekGeneralMIB("");
  EXPECT_THAT(interposed().unregistered, SizeIs(1));
}

TEST_F(RegistrationTest, MayBeRegisteredAgainAndAgain) {
  for (int i = 0; i < 20; ++i) {
    init_NorvekGeneralMIB("");
    EXPECT_THAT(interposed().columnInfos, SizeIs(1));
    unregister_NorvekGeneralMIB("");
    EXPECT_THAT(interposed().columnInfos, IsEmpty());
  }
  EXPECT_THAT(interposed().unregistered, SizeIs(20));
}

TEST_F(RegistrationTest, AnIndexThatCannotBeAddedIsTracedAndDoesNotStopTheOthers) {
  interposed().failingIndexes = {1, 2, 3};
  // net-snmp refuses a table without indexes; what matters comes before.
  interposed().registeringResult = 0;
  interposed().injectingResult = 0;
  netsnmp_iterator_info* iteratorInfo = nullptr;
  interposed().beforeRegistering = [&](netsnmp_handler_registration&, netsnmp_iterator_info& info) {
    EXPECT_EQ(info.table_reginfo->indexes, nullptr);
    iteratorInfo = &info;
  };
  initialize_table_norvekReloadCauseTable("");
  EXPECT_EQ(interposed().indexesAdded, 3);
  const std::string failed = "Snmp 0: Failed to set up ";
  const std::string place = " in netsnmp table_info in context \"\"";
  EXPECT_THAT(
      trace.lines(),
      ElementsAre(std::string("Snmp 1: ") + kInitializing + "\"\"",
                  failed + "norvekReloadUnitIndex" + place, failed + "norvekReloadIndex" + place,
                  failed + "norvekReloadCauseIndex" + place,
                  "Snmp 8: Initialized table norvekReloadCauseTable in context \"\""));
  // They never went to net-snmp, which would own the records.
  unregister_NorvekGeneralMIB("");
  netsnmp_handler_registration_free(interposed().registered);
  netsnmp_table_registration_info_free(iteratorInfo->table_reginfo);
  std::free(iteratorInfo);
}

TEST_F(RegistrationTest, TheAgentsOfferOfAContextReachesTheModule) {
  Snmp::contextIs("blue");
  EXPECT_THAT(served(), ElementsAre("blue/NorvekGeneralMIB"));
  Snmp::contextDel("blue");
  unregister_NorvekGeneralMIB("blue");
}

TEST_F(RegistrationTest, TheRegistrationObjectForwardsItsContext) {
  NorvekGeneralMIB_HandlerRegistration registration;
  registration.initHandler("blue");
  EXPECT_THAT(trace.lines(), Contains(HasSubstr("in context \"blue\"")));
  unregister_NorvekGeneralMIB("blue");
}

TEST_F(RegistrationTest, TracesTheTableAtLevelOne) {
  trace.levelIs("Snmp", 1);
  init_NorvekGeneralMIB("");
  EXPECT_THAT(trace.lines(), ElementsAre(std::string("Snmp 1: ") + kInitializing + "\"\""));
  unregister_NorvekGeneralMIB("");
}

TEST_F(RegistrationTest, TracesNothingWhenOnlyErrorsAre) {
  trace.levelIs("Snmp", 0);
  init_NorvekGeneralMIB("");
  EXPECT_THAT(trace.lines(), IsEmpty());
  unregister_NorvekGeneralMIB("");
}

// What net-snmp's own debug output shows of a call.
std::string debugOutput(const std::function<void()>& call) {
  snmp_enable_stderrlog();
  testing::internal::CaptureStderr();
  call();
  std::string output = testing::internal::GetCapturedStderr();
  snmp_disable_stderrlog();
  return output;
}

TEST_F(RegistrationTest, ShowsTheContextInNetSnmpsDebugOutput) {
  debug_register_tokens(std::string("trace,NorvekGeneralMIB").data());
  snmp_set_do_debugging(1);
  const std::string output = debugOutput([] { init_NorvekGeneralMIB("blue"); });
  snmp_set_do_debugging(0);
  EXPECT_THAT(output, testing::MatchesRegex(
                          "(.*\n)?trace: init_NorvekGeneralMIB\\(\\): [^\n]*NorvekGeneralMIB.cpp, "
                          "[0-9]+:\nNorvekGeneralMIB: Initializing in context \"blue\"\n(.*\n)?"));
  unregister_NorvekGeneralMIB("blue");
}

TEST_F(RegistrationTest, ShowsNothingWhenDebuggingIsOff) {
  EXPECT_EQ(debugOutput([] { init_NorvekGeneralMIB("blue"); }), "");
  unregister_NorvekGeneralMIB("blue");
}

TEST_F(RegistrationDeathTest, AMissingModelEndsTheProcess) {
  root->dirIs("snmp/misc")->entityDel("generalMib");
  EXPECT_DEATH(init_NorvekGeneralMIB(""),
               "Can not getEntityRelative\\( snmp/misc/generalMib \\) for table "
               "norvekReloadCauseTable\\. Is this path correct\\?\nassertion failed: ");
}

TEST_F(RegistrationDeathTest, AnEntityOfAnotherTypeEndsTheProcess) {
  const auto dir = root->dirIs("snmp/misc");
  dir->entityDel("generalMib");
  dir->entityIs(Qel::make<Qel::Dir>("generalMib"));
  EXPECT_DEATH(init_NorvekGeneralMIB(""),
               "snmp/misc/generalMib does not appear to be of type MiscSnmp::GeneralMib\\.\n"
               "assertion failed: ");
}

TEST_F(RegistrationDeathTest, ASecondRegistrationOfAContextEndsTheProcess) {
  init_NorvekGeneralMIB("");
  EXPECT_DEATH(init_NorvekGeneralMIB(""), "assertion failed: result == 0 ");
  unregister_NorvekGeneralMIB("");
}

TEST_F(RegistrationDeathTest, ATableThatNetSnmpRefusesEndsTheProcess) {
  interposed().registeringResult = -1;
  EXPECT_DEATH(init_NorvekGeneralMIB(""), "assertion failed: result == 0 ");
}

TEST_F(RegistrationDeathTest, ASerializeHandlerThatCannotBeInjectedEndsTheProcess) {
  interposed().injectingResult = -1;
  EXPECT_DEATH(init_NorvekGeneralMIB(""), "assertion failed: injected == \\(0\\) ");
}

}  // namespace
}  // namespace NorvekGeneralMIB
