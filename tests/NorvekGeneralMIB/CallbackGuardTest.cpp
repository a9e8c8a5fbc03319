#include "NorvekGeneralMIB/CallbackGuard.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "support/TraceRecorder.h"

namespace NorvekGeneralMIB {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(CallbackGuardTest, ReturnsWhatTheCallReturns) {
  const support::TraceRecorder trace;
  EXPECT_EQ(withoutThrowing(
                "callback", [] { return 1; }, [] { return 2; }),
            1);
  EXPECT_THAT(trace.lines(), IsEmpty());
}

TEST(CallbackGuardTest, TracesWhatIsThrownAndFallsBack) {
  const support::TraceRecorder trace;
  const auto fail = []() -> int { throw std::runtime_error("a fault"); };
  EXPECT_EQ(withoutThrowing("callback", fail, [] { return 2; }), 2);
  EXPECT_THAT(trace.lines(), ElementsAre("Snmp 0: callback failed: a fault"));
}

TEST(CallbackGuardTest, TracesWhateverIsThrown) {
  const support::TraceRecorder trace;
  const auto fail = []() -> int { throw 42; };
  EXPECT_EQ(withoutThrowing("callback", fail, [] { return 2; }), 2);
  EXPECT_THAT(trace.lines(), ElementsAre("Snmp 0: callback failed: unknown exception"));
}

}  // namespace
}  // namespace NorvekGeneralMIB
