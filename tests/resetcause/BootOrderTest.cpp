#include "resetcause/BootOrder.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace ResetCause {
namespace {

using Known = std::vector<Journal::Boot>;

std::string before(const Known& boots, const std::string& id, Findings::Marks known = {}) {
  const auto found = bootBefore(boots, id, Findings(std::move(known)));
  return found ? found->id : "none";
}

// Each with its start, its last entry, the series of its entries and the number of the first.
const Journal::Boot kFirst{"first", 100, 200, "s", 1};
const Journal::Boot kSecond{"second", 1000, 2000, "s", 50};

TEST(BootOrderTest, TheNumbersOfTheEntriesDecideAndNotTheClock) {
  const Journal::Boot third{"third", 500, 600, "s", 90};
  EXPECT_EQ(before({third, kSecond, kFirst}, "third"), "second");
  EXPECT_EQ(before({third, kSecond, kFirst}, "second"), "first");
  EXPECT_EQ(before({third, kSecond, kFirst}, "first"), "third");
}

TEST(BootOrderTest, WhereTheSeriesBeganAnewItIsTheLatestThatWasNotSeenBefore) {
  const Journal::Boot third{"third", 10, 20, "new", 1};
  EXPECT_EQ(before({kFirst, kSecond, third}, "third"), "second");
  const Journal::Boot ahead{"ahead", 9000, 9900, "older", 7};
  EXPECT_EQ(before({ahead, kSecond, third}, "third"), "ahead");
  EXPECT_EQ(before({ahead, kSecond, third}, "third", {bootMark("ahead")}), "second");
  EXPECT_EQ(before({ahead, kSecond, third}, "third",
                   {bootMark("ahead"), bootMark("second"), judgedMark("second")}),
            "second");
}

TEST(BootOrderTest, ABootThatWasNotSeenBeforeIsLaterThanTheOneThatWasJudged) {
  const Journal::Boot setBack{"set back", 10, 20, "between", 1};
  const Journal::Boot third{"third", 3000, 3001, "new", 1};
  EXPECT_EQ(before({kSecond, setBack, third}, "third",
                   {bootMark("first"), bootMark("second"), judgedMark("second")}),
            "set back");
}

TEST(BootOrderTest, ABootThatWasThereBeforeTheOneThatWasJudgedIsNeverTheLatest) {
  const Journal::Boot third{"third", 3000, 3001, "s", 90};
  EXPECT_EQ(before({kFirst, third}, "third",
                   {bootMark("first"), bootMark("second"), judgedMark("second")}),
            "none");
  const Journal::Boot fourth{"fourth", 4000, 4001, "new", 1};
  EXPECT_EQ(before({kFirst, fourth}, "fourth",
                   {bootMark("first"), bootMark("second"), judgedMark("second")}),
            "none");
}

TEST(BootOrderTest, ABootThatCouldNotBeReadBeforeIsNoLaterForThat) {
  const Journal::Boot third{"third", 3000, 3001, "new", 1};
  EXPECT_EQ(before({kFirst, kSecond, third}, "third", {bootMark("second"), judgedMark("second")}),
            "second");
}

TEST(BootOrderTest, TheFirstOfAllHasNoneBefore) {
  EXPECT_EQ(before({kFirst}, "first"), "none");
  EXPECT_EQ(before({}, "first"), "none");
}

}  // namespace
}  // namespace ResetCause
