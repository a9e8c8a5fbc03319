#include "Qel/Trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>

#include "support/TraceRecorder.h"

namespace {

using Qel::TraceHandle;
using Qel::TraceHelper;
using testing::ElementsAre;
using testing::IsEmpty;

// Counts how often it is written out.
struct Counted {
  mutable int written = 0;
};
std::ostream& operator<<(std::ostream& out, const Counted& counted) {
  ++counted.written;
  return out << "counted";
}

class TraceTest : public testing::Test {
 protected:
  template <class Text>
  void trace(int level, const Text& text) {
    if (auto trace = TraceHelper::createIfEnabled(handle_, level, "Model", 42, "handleIt")) {
      *trace << text;
    }
  }

  TraceHandle handle_{"Test"};
};

TEST_F(TraceTest, BringsErrorsAloneUntilItIsToldOtherwise) {
  support::TraceRecorder recorder;
  trace(0, "error");
  trace(1, "decision");
  EXPECT_THAT(recorder.lines(), ElementsAre("Test 0: error"));
}

TEST_F(TraceTest, BringsEveryLevelUpToTheOneThatIsOn) {
  support::TraceRecorder recorder{{"Test", 2}};
  for (const int level : {0, 1, 2, 3, 8}) trace(level, "line");
  EXPECT_THAT(recorder.lines(), ElementsAre("Test 0: line", "Test 1: line", "Test 2: line"));
  recorder.levelIs("Test", -1);
  recorder.clear();
  trace(0, "silenced");
  EXPECT_THAT(recorder.lines(), IsEmpty());
}

TEST_F(TraceTest, ShowsTheHighestLevelThatIsOnNowAndLater) {
  const int& level = handle_.level();
  EXPECT_EQ(level, 0);
  const support::TraceRecorder recorder{{"Test", 2}};
  EXPECT_EQ(level, 2);
}

TEST_F(TraceTest, BuildsNoTextForALevelThatIsOff) {
  support::TraceRecorder recorder{{"Test", 1}};
  const Counted counted;
  trace(8, counted);
  EXPECT_EQ(counted.written, 0);
  trace(1, counted);
  EXPECT_EQ(counted.written, 1);
}

TEST_F(TraceTest, RecordsWhereTheStatementStands) {
  support::TraceRecorder recorder;
  trace(0, "text");
  ASSERT_EQ(recorder.records().size(), 1U);
  const Qel::TraceRecord& record = recorder.records()[0];
  EXPECT_EQ(record.facility, "Test");
  EXPECT_EQ(record.level, 0);
  EXPECT_EQ(record.file, "Model");
  EXPECT_EQ(record.position, 42);
  EXPECT_EQ(record.function, "handleIt");
  EXPECT_EQ(record.text, "text");
}

TEST_F(TraceTest, LevelsHoldForOneFacilityAndForItsLaterHandles) {
  support::TraceRecorder recorder{{"Later", 8}};
  const TraceHandle later("Later");
  const TraceHandle other("Other");
  EXPECT_TRUE(later.isEnabled(8));
  EXPECT_FALSE(other.isEnabled(1));
  EXPECT_FALSE(handle_.isEnabled(1));
}

TEST_F(TraceTest, AHandleThatIsGoneHearsNoMoreOfLevels) {
  support::TraceRecorder recorder;
  auto handle = std::make_unique<TraceHandle>("Test");
  recorder.levelIs("Test", 3);
  EXPECT_TRUE(handle->isEnabled(3));
  handle.reset();
  recorder.levelIs("Test", 4);
  EXPECT_TRUE(handle_.isEnabled(4));
}

TEST_F(TraceTest, GoesToStandardErrorWithControlCharactersEscaped) {
  testing::internal::CaptureStderr();
  trace(0, Qel::String(std::string_view("a\nb\0\x7f\x1b[31m \xc3\xa9", 13)));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Test 0: a\\nb\\x00\\x7f\\x1b[31m \xc3\xa9\n");
}

TEST_F(TraceTest, ALineWithoutTextIsALine) {
  testing::internal::CaptureStderr();
  trace(0, "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Test 0: \n");
}

TEST_F(TraceTest, ASinkThatFailsLosesTheRecordAndNothingElse) {
  Qel::traceSinkIs([](const Qel::TraceRecord&) { throw std::runtime_error("full"); });
  testing::internal::CaptureStderr();
  EXPECT_NO_THROW(trace(0, "text"));
  Qel::traceSinkIs({});
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "trace record lost\n");
}

TEST_F(TraceTest, TellsTheJournalHowSevereALineIs) {
  const auto asTheJournalReads = [this] {
    struct stat facts {};
    ::fstat(STDERR_FILENO, &facts);
    const auto stream = std::to_string(facts.st_dev) + ":" + std::to_string(facts.st_ino);
    ::setenv("JOURNAL_STREAM", stream.c_str(), 1);
    trace(0, "lost");
    std::exit(0);
  };
  EXPECT_EXIT(asTheJournalReads(), testing::ExitedWithCode(0), "^<3>Test 0: lost\n$");
}

}  // namespace
