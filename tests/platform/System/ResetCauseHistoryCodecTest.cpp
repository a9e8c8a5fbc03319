#include "System/ResetCauseHistoryCodec.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "System/ResetCauseHistory.h"
#include "Watchers.h"
#include "support/LiveObjects.h"
#include "support/ProblemOf.h"
#include "support/RunStep.h"

namespace System {
namespace {

using Qel::Document;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

Document cause(const char* description, double time) {
  return Document::Map{{"description", description}, {"time", time}};
}
Document fullCause(const char* description, double time, const char* action, const char* detail) {
  return Document::Map{{"description", description},
                       {"time", time},
                       {"recommendedAction", action},
                       {"detail", detail}};
}
Document reload(Document::List causes) {
  return Document::Map{{"causeQ", Document(std::move(causes))}};
}
Document history(Document::Map reloads) {
  return Document::Map{{"type", "System::ResetCauseHistory"},
                       {"rebootHistory", Document(std::move(reloads))}};
}
Document historyOfCause(Document cause) { return history({{"0", reload({std::move(cause)})}}); }

std::string problemOf(const std::function<void()>& work) {
  return support::problemOf<Qel::DocumentException>(work);
}

class ResetCauseHistoryCodecTest : public support::LiveObjectsTest {
 protected:
  Qel::Ptr<ResetCauseHistory> decoded(const Document& document) const {
    const auto entity = codec_.newEntity("history");
    codec_.decode(document)(*entity, support::runStep);
    return Qel::ptrCast<ResetCauseHistory>(entity);
  }
  std::string problemOfDocument(const Document& document) const {
    std::string problem = problemOf([&] { codec_.decode(document); });
    // The flat form is made of good documents alone.
    EXPECT_EQ(problemOf([&] { codec_.fieldsOf(document); }), problem);
    return problem;
  }
  std::string problemOfFields(const Qel::DocumentCodec::Fields& fields) const {
    return problemOf([&] { codec_.documentOf(fields); });
  }
  systemtest::Log takeLog() { return std::exchange(log_, {}); }

  const ResetCauseHistoryCodec codec_{};
  systemtest::Log log_;
};

TEST_F(ResetCauseHistoryCodecTest, MakesAnEmptyEntity) {
  const auto entity = codec_.newEntity("history");
  EXPECT_EQ(entity->name(), Qel::Name("history"));
  EXPECT_TRUE(Qel::ptrCast<ResetCauseHistory>(entity)->rebootHistory().empty());
}

TEST_F(ResetCauseHistoryCodecTest, ReadsEveryMember) {
  const auto entity =
      decoded(history({{"0", reload({fullCause("Power loss", 1700000000.9, "act", "more")})},
                       {"4294967295", reload({})}}));
  const auto latest = entity->rebootHistory(0);
  ASSERT_EQ(latest->causeQ().members(), 1U);
  EXPECT_EQ(latest->causeQ().first()->value(),
            ResetCause("Power loss", 1700000000.9, "act", "more"));
  EXPECT_TRUE(entity->rebootHistory(4294967295)->causeQ().empty());
  EXPECT_EQ(entity->rebootHistory().members(), 2U);
}

TEST_F(ResetCauseHistoryCodecTest, ReadsTimesWrittenAsIntegers) {
  const auto time = [this](Document value) {
    const auto entity =
        decoded(historyOfCause(Document::Map{{"description", "x"}, {"time", std::move(value)}}));
    return entity->rebootHistory(0)->causeQ().first()->value().time();
  };
  EXPECT_EQ(time(std::uint64_t{4294967296}), 4294967296.0);
  EXPECT_EQ(time(std::int64_t{-5}), -5.0);
  EXPECT_EQ(time(-0.5), -0.5);
}

TEST_F(ResetCauseHistoryCodecTest, KeepsTheReloadsThatStayAndTellsOfEachChangeOnce) {
  const auto entity = decoded(history({{"0", reload({cause("a", 1)})},
                                       {"1", reload({cause("b", 2)})},
                                       {"2", reload({cause("c", 3)})}}));
  const auto first = entity->rebootHistory(0);
  const auto historyWatcher = Qel::make<systemtest::HistoryWatcher>(entity, log_);
  const auto firstWatcher = Qel::make<systemtest::InstanceWatcher>(first, log_);
  takeLog();
  codec_.decode(history({{"0", reload({cause("a", 1), cause("new", 4)})},
                         {"1", reload({cause("b", 2)})},
                         {"3", reload({cause("c", 3)})}}))(*entity, support::runStep);
  EXPECT_THAT(takeLog(), ElementsAre("onRebootHistory 2 gone", "onCauseQqelImmediate",
                                     "onRebootHistory 3 of 1"));
  EXPECT_EQ(entity->rebootHistory(0), first);
}

TEST_F(ResetCauseHistoryCodecTest, ChangesNothingForAnEqualDocument) {
  const Document document = history({{"0", reload({cause("a", 1)})}});
  const auto entity = decoded(document);
  const auto historyWatcher = Qel::make<systemtest::HistoryWatcher>(entity, log_);
  const auto instanceWatcher =
      Qel::make<systemtest::InstanceWatcher>(entity->rebootHistory(0), log_);
  takeLog();
  codec_.decode(document)(*entity, support::runStep);
  EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(ResetCauseHistoryCodecTest, EmptiesTheEntityForAnEmptyHistory) {
  const auto entity = decoded(history({{"0", reload({cause("a", 1)})}}));
  codec_.decode(history({}))(*entity, support::runStep);
  EXPECT_TRUE(entity->rebootHistory().empty());
}

TEST_F(ResetCauseHistoryCodecTest, RefusesWhatDoesNotFitWithItsPlace) {
  const std::string place = "/rebootHistory/0/causeQ/0";
  EXPECT_EQ(problemOfDocument(5.0), "/: expected a map but found a number");
  EXPECT_EQ(problemOfDocument(Document::Map{{"type", "x"}}),
            "/: member 'rebootHistory' is missing");
  EXPECT_EQ(problemOfDocument(Document::Map{{"rebootHistory", Document::Map{}}, {"x", true}}),
            "/: unknown member 'x'");
  EXPECT_EQ(problemOfDocument(Document::Map{{"rebootHistory", Document::List{}}}),
            "/rebootHistory: expected a map but found a list");
  EXPECT_EQ(problemOfDocument(history({{"0", Document(true)}})),
            "/rebootHistory/0: expected a map but found a bool");
  EXPECT_EQ(problemOfDocument(history({{"0", Document::Map{}}})),
            "/rebootHistory/0: member 'causeQ' is missing");
  EXPECT_EQ(problemOfDocument(history({{"0", Document::Map{{"causeQ", "x"}}}})),
            "/rebootHistory/0/causeQ: expected a list but found a text");
  EXPECT_EQ(problemOfDocument(historyOfCause({})), place + ": expected a map but found null");
  EXPECT_EQ(problemOfDocument(historyOfCause(Document::Map{{"time", 1.0}})),
            place + ": member 'description' is missing");
  EXPECT_EQ(problemOfDocument(historyOfCause(Document::Map{{"description", "x"}})),
            place + ": member 'time' is missing");
  EXPECT_EQ(problemOfDocument(historyOfCause(Document::Map{{"description", 1.0}, {"time", 1.0}})),
            place + "/description: expected a text but found a number");
  EXPECT_EQ(problemOfDocument(historyOfCause(Document::Map{{"description", "x"}, {"time", "1"}})),
            place + "/time: expected a number but found a text");
  EXPECT_EQ(problemOfDocument(historyOfCause(
                Document::Map{{"description", "x"}, {"time", 1.0}, {"detail", Document()}})),
            place + "/detail: expected a text but found null");
  EXPECT_EQ(problemOfDocument(historyOfCause(
                Document::Map{{"description", "x"}, {"time", 1.0}, {"action", "x"}})),
            place + ": unknown member 'action'");
}

TEST_F(ResetCauseHistoryCodecTest, NamesThePlaceOfALaterCause) {
  EXPECT_EQ(problemOfDocument(history(
                {{"0", reload({cause("a", 1)})}, {"3", reload({cause("a", 1), Document::Map{}})}})),
            "/rebootHistory/3/causeQ/1: member 'time' is missing");
}

TEST_F(ResetCauseHistoryCodecTest, RefusesNamesThatAreNoIndex) {
  for (const char* name : {"", "x", "-1", "+1", "01", " 1", "1.0", "4294967296"}) {
    EXPECT_EQ(problemOfDocument(history({{name, reload({})}})),
              std::string("/rebootHistory/") + name +
                  ": the name is not a reload index, an unsigned 32-bit number");
  }
}

TEST_F(ResetCauseHistoryCodecTest, RefusesAnIndexThatStandsTwice) {
  EXPECT_EQ(problemOfDocument(history({{"1", reload({})}, {"1", reload({})}})),
            "/rebootHistory/1: stands twice");
}

TEST_F(ResetCauseHistoryCodecTest, RefusesTimesThatAreNoSecondsOfAnyCalendar) {
  const auto problem = [this](double time) {
    return problemOfDocument(historyOfCause(cause("x", time)));
  };
  const std::string place = "/rebootHistory/0/causeQ/0/time: ";
  EXPECT_EQ(problem(9.0e15), "nothing");
  EXPECT_EQ(problem(-9.0e15), "nothing");
  EXPECT_EQ(problem(9.1e15), place + "outside the range of times");
  EXPECT_EQ(problem(-9.1e15), place + "outside the range of times");
  EXPECT_EQ(problem(std::numeric_limits<double>::infinity()), place + "not a finite number");
  EXPECT_EQ(problem(std::numeric_limits<double>::quiet_NaN()), place + "not a finite number");
}

TEST_F(ResetCauseHistoryCodecTest, RefusesMoreThanItsLimits) {
  Document::Map reloads;
  for (U32 i = 0; i < 1024; ++i) {
    reloads.emplace_back(Qel::String(std::to_string(i)), reload({}));
  }
  EXPECT_EQ(problemOfDocument(history(reloads)), "nothing");
  reloads.emplace_back("1024", reload({}));
  EXPECT_EQ(problemOfDocument(history(reloads)),
            "/rebootHistory: map of 1025 members is larger than 1024");

  EXPECT_EQ(problemOfDocument(history({{"0", reload(Document::List(65537, cause("x", 1)))}})),
            "/rebootHistory/0/causeQ: list of 65537 items is longer than 65536");

  const std::string longest(1024, 'x');
  EXPECT_EQ(problemOfDocument(historyOfCause(cause(longest.c_str(), 1))), "nothing");
  EXPECT_EQ(problemOfDocument(historyOfCause(cause((longest + "x").c_str(), 1))),
            "/rebootHistory/0/causeQ/0/description: text of 1025 bytes is longer than 1024");

  const std::string detail(65536, 'x');
  EXPECT_EQ(problemOfDocument(historyOfCause(fullCause("", 1, "", detail.c_str()))), "nothing");
  EXPECT_EQ(problemOfDocument(historyOfCause(fullCause("", 1, "", (detail + "x").c_str()))),
            "/rebootHistory/0/causeQ/0/detail: text of 65537 bytes is longer than 65536");
}

TEST_F(ResetCauseHistoryCodecTest, WritesFlatFields) {
  EXPECT_THAT(codec_.fieldsOf(history({{"3", reload({fullCause("c", 2, "a", "b")})},
                                       {"0", reload({cause("x", 1700000000.9), cause("", -1)})}})),
              ElementsAre(Pair("n", "2"), Pair("0:n", "2"), Pair("0:0:d", "x"),
                          Pair("0:0:t", "1700000000.9"), Pair("0:0:a", ""), Pair("0:0:b", ""),
                          Pair("0:1:d", ""), Pair("0:1:t", "-1"), Pair("0:1:a", ""),
                          Pair("0:1:b", ""), Pair("3:n", "1"), Pair("3:0:d", "c"),
                          Pair("3:0:t", "2"), Pair("3:0:a", "a"), Pair("3:0:b", "b")));
}

TEST_F(ResetCauseHistoryCodecTest, HasNoFieldForAnEmptyHistory) {
  EXPECT_THAT(codec_.fieldsOf(history({})), IsEmpty());
  EXPECT_EQ(codec_.documentOf({}), history({}));
}

TEST_F(ResetCauseHistoryCodecTest, ReadsBackItsFields) {
  const std::string octets = {'\0', '\xff', ':', 'n'};
  const Document document =
      history({{"0", reload({fullCause("a", 0.1, "b", "c"),
                             Document(Document::Map{{"description", Qel::String(octets)},
                                                    {"time", -4294967297.125}})})},
               {"7", reload({})}});
  EXPECT_EQ(codec_.documentOf(codec_.fieldsOf(document)), document);
}

TEST_F(ResetCauseHistoryCodecTest, ReadsFieldsInAnyOrder) {
  const Document document = history({{"2", reload({fullCause("a", 1, "b", "c")})},
                                     {"7", reload({})},
                                     {"10", reload({fullCause("d", 2, "e", "f")})}});
  Qel::DocumentCodec::Fields fields = codec_.fieldsOf(document);
  std::reverse(fields.begin(), fields.end());
  EXPECT_EQ(codec_.documentOf(fields), document);
}

TEST_F(ResetCauseHistoryCodecTest, LeavesEmptyOptionalTextsOutOfADocumentOfFields) {
  EXPECT_EQ(codec_.documentOf(codec_.fieldsOf(historyOfCause(fullCause("a", 1, "", "")))),
            historyOfCause(cause("a", 1)));
}

TEST_F(ResetCauseHistoryCodecTest, RefusesFieldsThatDoNotFitWithTheirName) {
  EXPECT_EQ(problemOfFields({{"0:n", "0"}}), "n: field is missing");
  EXPECT_EQ(problemOfFields({{"n", "x"}, {"0:n", "0"}}), "n: not an unsigned 32-bit number");
  EXPECT_EQ(problemOfFields({{"n", "1"}}), "n: is not the number of reloads that stand there");
  EXPECT_EQ(problemOfFields({{"n", "1"}, {"0:n", "0"}, {"1:n", "0"}}),
            "n: is not the number of reloads that stand there");
  EXPECT_EQ(problemOfFields({{"n", "1"}, {"01:n", "0"}}), "01:n: unknown field");
  EXPECT_EQ(problemOfFields({{"n", "1"}, {"x:n", "0"}}), "x:n: unknown field");
  EXPECT_EQ(problemOfFields({{"n", "1"}, {"0:n", "-1"}}), "0:n: not an unsigned 32-bit number");
  EXPECT_EQ(problemOfFields({{"n", "1"}, {"0:n", "65537"}}),
            "0:n: more causes than a reload may have");
  EXPECT_EQ(problemOfFields({{"n", "1"}, {"0:n", "1"}}), "0:0:d: field is missing");
  EXPECT_EQ(problemOfFields({{"n", "1"}, {"0:n", "1"}, {"0:0:d", "x"}, {"0:0:t", "nan"}}),
            "0:0:t: not a finite number");
  EXPECT_EQ(problemOfFields({{"n", "1"}, {"0:n", "0"}, {"zz", "1"}}), "zz: unknown field");
  EXPECT_EQ(problemOfFields({{"n", "1"}, {"0:n", "0"}, {"n", "1"}}), "n: stands twice");
}

TEST_F(ResetCauseHistoryCodecTest, TakesTenThousandCausesInLinearTime) {
  Document::List causes;
  for (int i = 0; i < 10000; ++i) causes.push_back(cause("some cause of a reload", i));
  const Document document = history({{"0", reload(std::move(causes))}});
  const auto start = std::chrono::steady_clock::now();
  const auto entity = decoded(document);
  codec_.decode(document)(*entity, support::runStep);
  EXPECT_EQ(
      decoded(codec_.documentOf(codec_.fieldsOf(document)))->rebootHistory(0)->causeQ().members(),
      10000U);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

}  // namespace
}  // namespace System
