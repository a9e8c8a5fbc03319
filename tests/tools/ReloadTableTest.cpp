#include "tools/ReloadTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Snmp/Converters.h"
#include "support/Random.h"
#include "tools/Errors.h"

namespace Tools {
namespace {

using Kind = SnmpBinding::Kind;
using testing::ElementsAre;
using testing::IsEmpty;

const ObjectId kEntry{1, 3, 6, 1, 4, 1, 32473, 3, 24, 1, 1, 1};

ObjectId instance(U32 column, const ReloadRowKey& key) {
  ObjectId name = kEntry;
  name.insert(name.end(), {column, key.unit, key.reload, key.cause});
  return name;
}

std::string dateAndTime(double seconds) {
  std::string octets(11, '\0');
  auto* buffer = reinterpret_cast<unsigned char*>(octets.data());
  EXPECT_EQ(Snmp::SecondsToAsnDateAndTimeF()(seconds, buffer, octets.size()), 11);
  return octets;
}

// An agent whose objects the test decides, and what it says instead.
class ScriptedAgent final : public SnmpPeer {
 public:
  void row(const ReloadRowKey& key, const std::string& description, double time) {
    object(instance(4, key), description);
    object(instance(5, key), dateAndTime(time));
  }
  void object(const ObjectId& name, const std::string& octets, Kind kind = Kind::octets) {
    objects_[name] = {name, kind, octets};
  }
  void repetitionsAre(std::size_t repetitions) { repetitions_ = repetitions; }
  // Takes so many objects from the end of each answer.
  void shortenBy(std::size_t count) { missing_ = count; }
  void answersWith(std::function<std::vector<SnmpBinding>()> answer) {
    answer_ = std::move(answer);
  }
  void getsWith(Kind kind) { got_ = kind; }
  std::size_t requestCount() const { return requests_; }

  std::vector<SnmpBinding> next(const std::vector<ObjectId>& names) override {
    ++requests_;
    if (answer_) return answer_();
    std::vector<SnmpBinding> answer;
    std::vector<ObjectId> places = names;
    for (std::size_t i = 0; i < repetitions_; ++i) {
      for (ObjectId& place : places) {
        answer.push_back(behind(place));
        place = answer.back().name;
      }
    }
    answer.resize(answer.size() - missing_);
    return answer;
  }
  SnmpBinding get(const ObjectId& name) override { return {name, got_, {}}; }

 private:
  SnmpBinding behind(const ObjectId& name) const {
    const auto found = objects_.upper_bound(name);
    return found == objects_.end() ? SnmpBinding{name, Kind::endOfView, {}} : found->second;
  }

  std::map<ObjectId, SnmpBinding> objects_;
  std::size_t repetitions_ = 10;
  std::size_t missing_ = 0;
  std::function<std::vector<SnmpBinding>()> answer_;
  Kind got_ = Kind::noSuchObject;
  std::size_t requests_ = 0;
};

class ReloadTableTest : public testing::Test {
 protected:
  ReloadRows rows() { return reloadRowsOf(agent_); }
  std::string problem() {
    try {
      rows();
    } catch (const CommandError& error) {
      return error.what();
    }
    return "none";
  }
  void someRows() {
    agent_.row({0, 0, 1}, "Power loss", 1700000000);
    agent_.row({0, 0, 2}, "Fan failure", 1700000001);
    agent_.row({1, 0, 1}, "Power loss", 1700000000);
    agent_.row({1, 0, 2}, "Fan failure", 1700000001);
    agent_.row({2, 0, 1}, "Watchdog", 1600000000);
  }
  static ReloadRows theRows() {
    return {{{0, 0, 1}, {"Power loss", 1700000000}},
            {{0, 0, 2}, {"Fan failure", 1700000001}},
            {{1, 0, 1}, {"Power loss", 1700000000}},
            {{1, 0, 2}, {"Fan failure", 1700000001}},
            {{2, 0, 1}, {"Watchdog", 1600000000}}};
  }

  ScriptedAgent agent_;
};

TEST_F(ReloadTableTest, ReadsAllRowsHoweverManyComeAtATime) {
  someRows();
  agent_.object({1, 3, 6, 1, 4, 1, 32473, 9}, "what comes behind the table", Kind::other);
  for (const std::size_t repetitions : {1U, 2U, 3U, 10U}) {
    agent_.repetitionsAre(repetitions);
    EXPECT_EQ(rows(), theRows());
  }
  agent_.shortenBy(1);
  EXPECT_EQ(rows(), theRows()) << "an answer that had no room for its last object";
}

TEST_F(ReloadTableTest, AsksForBothColumnsAtATime) {
  someRows();
  rows();
  EXPECT_EQ(agent_.requestCount(), 1U);
}

TEST_F(ReloadTableTest, TellsATableWithoutRowsFromNoTable) {
  EXPECT_EQ(problem(),
            "the agent has no such table, or does not show it to this user or community");
  agent_.getsWith(Kind::noSuchInstance);
  EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(ReloadTableTest, EndsWithAnErrorWhereObjectsDoNotIncrease) {
  const SnmpBinding first{instance(4, {1, 0, 2}), Kind::octets, "a"};
  for (const ReloadRowKey& key : {ReloadRowKey{1, 0, 2}, ReloadRowKey{1, 0, 1}}) {
    agent_.answersWith([&] {
      return std::vector<SnmpBinding>{first,
                                      {instance(5, {1, 0, 2}), Kind::octets, "b"},
                                      {instance(4, key), Kind::octets, "c"}};
    });
    EXPECT_THAT(problem(), testing::StartsWith("the agent's objects do not increase: 1.3.6.1.4.1."
                                               "32473.3.24.1.1.1.4.1.0."));
  }
}

TEST_F(ReloadTableTest, EndsWithAnErrorWhereAnAnswerIsEmpty) {
  agent_.answersWith([] { return std::vector<SnmpBinding>(); });
  EXPECT_EQ(problem(), "the agent answers with nothing");
}

TEST_F(ReloadTableTest, EndsWithAnErrorWhereObjectsAreOfAnotherKind) {
  const std::string begin = "the agent serves something else than the table: ";
  agent_.object(instance(4, {1, 0, 1}), "", Kind::other);
  EXPECT_EQ(problem(), begin + "1.3.6.1.4.1.32473.3.24.1.1.1.4.1.0.1");
  agent_.object(instance(4, {1, 0, 1}), "", Kind::noSuchInstance);
  EXPECT_EQ(problem(), begin + "1.3.6.1.4.1.32473.3.24.1.1.1.4.1.0.1");
}

TEST_F(ReloadTableTest, EndsWithAnErrorWhereObjectsAreNoInstances) {
  ObjectId name = instance(4, {1, 0, 1});
  name.push_back(7);
  agent_.object(name, "a");
  EXPECT_EQ(
      problem(),
      "the agent serves something else than the table: 1.3.6.1.4.1.32473.3.24.1.1.1.4.1.0.1.7");
  name.resize(name.size() - 2);
  agent_.object(name, "a");
  EXPECT_EQ(problem(),
            "the agent serves something else than the table: 1.3.6.1.4.1.32473.3.24.1.1.1.4.1.0");
}

TEST_F(ReloadTableTest, GivesUpAnAgentThatNeverEnds) {
  U32 number = 0;
  std::string text(1024, 'x');
  agent_.answersWith([&] {
    std::vector<SnmpBinding> answer;
    for (int i = 0; i < 1024; ++i) {
      ++number;
      answer.push_back({instance(4, {number, 0, 1}), Kind::octets, text});
      answer.push_back({instance(5, {number, 0, 1}), Kind::octets, text});
    }
    return answer;
  });
  EXPECT_EQ(problem(), "the agent serves more than any such table holds");
  EXPECT_EQ(number, 33U * 1024) << "64 MiB";
  number = 0;
  text.clear();
  EXPECT_EQ(problem(), "the agent serves more than any such table holds");
  EXPECT_EQ(number, 193U * 1024) << "as many rows as three units may have";
}

TEST_F(ReloadTableTest, TakesTheUnitThatAnswersForTheOneWithItsRows) {
  someRows();
  const auto cells = cellsOf(rows());
  ASSERT_EQ(cells.size(), 2U);
  EXPECT_EQ(cells[0].cell, 1U);
  EXPECT_TRUE(cells[0].hasAnswered);
  ASSERT_EQ(cells[0].reloads.size(), 1U);
  EXPECT_EQ(cells[0].reloads[0].causes[1].description, "Fan failure");
  EXPECT_EQ(cells[0].reloads[0].causes[1].time, 1700000001);
  EXPECT_EQ(cells[1].cell, 2U);
  EXPECT_FALSE(cells[1].hasAnswered);
}

TEST_F(ReloadTableTest, ListsTheUnitThatAnswersByItselfWhereItHasNoOtherNumber) {
  const auto cells = cellsOf({{{0, 0, 1}, {"a", 5}}, {{1, 0, 1}, {"a", 6}}});
  ASSERT_EQ(cells.size(), 2U);
  EXPECT_EQ(cells[0].cell, std::nullopt);
  EXPECT_TRUE(cells[0].hasAnswered);
  EXPECT_FALSE(cells[1].hasAnswered);
}

TEST_F(ReloadTableTest, LeavesItOpenWhichOfTwoEqualUnitsAnswers) {
  const auto cells = cellsOf({{{0, 0, 1}, {"a", 5}}, {{1, 0, 1}, {"a", 5}}, {{2, 0, 1}, {"a", 5}}});
  ASSERT_EQ(cells.size(), 2U);
  EXPECT_FALSE(cells[0].hasAnswered);
  EXPECT_FALSE(cells[1].hasAnswered);
}

TEST_F(ReloadTableTest, GroupsTheCausesOfAReload) {
  const auto cells = cellsOf({{{1, 0, 1}, {"a", 5}}, {{1, 0, 2}, {"b", 5}}, {{1, 3, 1}, {"c", 5}}});
  ASSERT_EQ(cells.size(), 1U);
  ASSERT_EQ(cells[0].reloads.size(), 2U);
  EXPECT_EQ(cells[0].reloads[0].causes.size(), 2U);
  EXPECT_EQ(cells[0].reloads[1].index, 3U);
}

TEST(DateAndTimeTest, ReadsBackWhatTheAgentWrites) {
  support::Random random;
  SCOPED_TRACE(random.replay());
  for (int step = support::randomSteps(2000); step > 0; --step) {
    // Up to the year 65535.
    const double seconds = 1.0 + random.below(2000000000) * 1000.0 + random.below(1000);
    if (seconds > 2.0e12) continue;
    ASSERT_EQ(secondsOfDateAndTime(dateAndTime(seconds)), seconds);
  }
  EXPECT_EQ(secondsOfDateAndTime(dateAndTime(1700000000.9)), 1700000000.9);
  EXPECT_EQ(secondsOfDateAndTime(dateAndTime(0)), std::nullopt) << "not known";
}

std::optional<double> secondsOf(const std::vector<int>& octets) {
  std::string text;
  for (const int octet : octets) text.push_back(static_cast<char>(octet));
  return secondsOfDateAndTime(text);
}

TEST(DateAndTimeTest, CountsTheOffset) {
  EXPECT_EQ(secondsOf({7, 178, 1, 1, 2, 0, 0, 0, '+', 1, 30}), 1800.0);
  EXPECT_EQ(secondsOf({7, 178, 1, 1, 2, 0, 0, 5, '-', 1, 30}), 12600.5);
  EXPECT_EQ(secondsOf({7, 177, 12, 31, 23, 59, 59, 0, '+', 0, 0}), -1.0);
}

TEST(DateAndTimeTest, TakesWhatIsNoTimeForAnUnknownOne) {
  EXPECT_EQ(secondsOf({}), std::nullopt);
  EXPECT_EQ(secondsOf({7, 178, 1, 1, 2, 0, 0, 0}), std::nullopt) << "of no known zone";
  const std::vector<int> good{7, 178, 2, 28, 23, 59, 60, 9, '+', 14, 59};
  EXPECT_NE(secondsOf(good), std::nullopt);
  for (const auto& [place, octet] : std::vector<std::pair<std::size_t, int>>{{2, 0},
                                                                             {2, 13},
                                                                             {3, 0},
                                                                             {3, 29},
                                                                             {4, 24},
                                                                             {5, 60},
                                                                             {6, 61},
                                                                             {7, 10},
                                                                             {8, 'x'},
                                                                             {9, 15},
                                                                             {10, 60}}) {
    std::vector<int> octets = good;
    octets[place] = octet;
    EXPECT_EQ(secondsOf(octets), std::nullopt) << place;
  }
}

}  // namespace
}  // namespace Tools
