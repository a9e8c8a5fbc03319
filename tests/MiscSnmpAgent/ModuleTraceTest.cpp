#include "MiscSnmpAgent/ModuleTrace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/TraceRecorder.h"

namespace MiscSnmp::Agent {

TEST(ModuleTrace, HasOneHandleOfTheFacilityMiscSnmp) {
  EXPECT_EQ(_defaultTraceHandle().facility(), "MiscSnmp");
  EXPECT_EQ(&_defaultTraceHandle(), &_defaultTraceHandle());
}

TEST(ModuleTrace, BuildsALineOnlyWhenItsLevelIsOn) {
  support::TraceRecorder log({{"MiscSnmp", 1}});

  EXPECT_FALSE(agentTrace(2));
  if (auto trace = agentTrace(1)) *trace << "a decision";

  EXPECT_THAT(log.lines(), testing::ElementsAre("MiscSnmp 1: a decision"));
}

TEST(ModuleTrace, RecordsNameTheModelTheHandlerAndTheLine) {
  support::TraceRecorder log;

  const int line = __LINE__ + 1;
  agentTrace({0, "handler"});

  ASSERT_EQ(log.records().size(), 1U);
  EXPECT_EQ(log.records()[0].file, "MiscSnmpAgent");
  EXPECT_EQ(log.records()[0].function, "handler");
  EXPECT_EQ(log.records()[0].position, line);
}

TEST(ModuleTrace, ABareLevelTakesTheFunctionAndTheLineThatItStandsIn) {
  support::TraceRecorder log;

  const int line = __LINE__ + 1;
  agentTrace(0);

  ASSERT_EQ(log.records().size(), 1U);
  EXPECT_EQ(log.records()[0].function, __func__);
  EXPECT_EQ(log.records()[0].position, line);
}

}  // namespace MiscSnmp::Agent
