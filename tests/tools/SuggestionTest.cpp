#include "tools/Suggestion.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace Tools {
namespace {

const std::vector<std::string> kPaths = {"cell/1/redundancy/status", "cell/1/sys/reset/history",
                                         "cell/2/sys/reset/history"};

TEST(SuggestionTest, FindsTheNearestWord) {
  EXPECT_EQ(suggestionFor("cell/3/redundancy/status", kPaths), kPaths[0]);
  EXPECT_EQ(suggestionFor("cell/2/sys/rest/histroy", kPaths), kPaths[2]);
  EXPECT_EQ(suggestionFor("gte", {"ls", "get", "put"}), "get");
  EXPECT_EQ(suggestionFor("lss", {"ls", "get", "put"}), "ls");
}

TEST(SuggestionTest, FindsWhereTheWordGoesOn) {
  EXPECT_EQ(suggestionFor("cell/1/sys", kPaths), kPaths[1]);
  EXPECT_EQ(suggestionFor("rec", {"ls", "get", "record-reset"}), "record-reset");
}

TEST(SuggestionTest, FindsNothingWhereTheWordIsAnother) {
  EXPECT_EQ(suggestionFor("elsewhere", kPaths), std::nullopt);
  EXPECT_EQ(suggestionFor("frobnicate", {"ls", "get", "record-reset", "add-cause"}), std::nullopt);
  EXPECT_EQ(suggestionFor("a", {"b"}), std::nullopt);
  EXPECT_EQ(suggestionFor("", kPaths), std::nullopt);
  EXPECT_EQ(suggestionFor("cell/1", {}), std::nullopt);
}

TEST(SuggestionTest, AsksAtTheEndOfAnError) {
  EXPECT_EQ(didYouMean("ls"), "; did you mean ls?");
  EXPECT_EQ(didYouMean(std::nullopt), "");
}

}  // namespace
}  // namespace Tools
