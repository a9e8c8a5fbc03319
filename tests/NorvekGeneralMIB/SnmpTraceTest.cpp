#include "NorvekGeneralMIB/SnmpTrace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>

#include "support/TraceRecorder.h"

namespace NorvekGeneralMIB {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

// Notes that it was written.
struct Written {
  int& count;
};
std::ostream& operator<<(std::ostream& out, const Written& written) {
  ++written.count;
  return out << "written";
}

TEST(SnmpTraceTest, HasOneHandleOfItsFacility) {
  EXPECT_EQ(&snmpTraceHandle(), &snmpTraceHandle());
  EXPECT_EQ(snmpTraceHandle().facility(), "Snmp");
}

TEST(SnmpTraceTest, WritesOneRecordWithItsPlace) {
  const support::TraceRecorder trace{{"Snmp", 2}};
  snmpTrace(2, "a ", 1, " b");
  EXPECT_THAT(trace.lines(), ElementsAre("Snmp 2: a 1 b"));
  EXPECT_THAT(trace.records().front().file.stdString(), EndsWith("SnmpTraceTest.cpp"));
  EXPECT_EQ(trace.records().front().function, "TestBody");
}

TEST(SnmpTraceTest, BuildsNoTextWhenTheLevelIsOff) {
  const support::TraceRecorder trace{{"Snmp", 1}};
  int count = 0;
  snmpTrace(2, Written{count});
  EXPECT_EQ(count, 0);
  EXPECT_THAT(trace.lines(), IsEmpty());
  snmpTrace(1, Written{count});
  EXPECT_EQ(count, 1);
}

TEST(SnmpTraceTest, AsksTheFacilityThatIsNotKnownYet) {
  snmpTraceLevel = &kUnknownSnmpTraceLevel;
  const support::TraceRecorder trace{{"Snmp", 1}};
  int count = 0;
  snmpTrace(2, Written{count});
  EXPECT_EQ(count, 0);
  EXPECT_THAT(trace.lines(), IsEmpty());
  snmpTraceLevel = &snmpTraceHandle().level();
}

TEST(SnmpTraceTest, AsksOnceForTheRoutineLinesOfACallback) {
  const auto call = [](auto trace, int number) {
    trace(kRoutine, "number ", number);
    return number + 1;
  };
  support::TraceRecorder trace{{"Snmp", 2}};
  EXPECT_EQ(withRoutineTrace(call, 1), 2);
  EXPECT_THAT(trace.lines(), ElementsAre("Snmp 2: number 1"));
  trace.levelIs("Snmp", 1);
  trace.clear();
  EXPECT_EQ(withRoutineTrace(call, 1), 2);
  EXPECT_THAT(trace.lines(), IsEmpty());
}

}  // namespace
}  // namespace NorvekGeneralMIB
