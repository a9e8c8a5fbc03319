#include "Qel/String.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <unordered_set>
#include <utility>

#include "Qel/Name.h"

namespace {

using Qel::String;
using namespace std::string_view_literals;

TEST(StringTest, IsEmptyAtFirst) {
  const String text;
  EXPECT_TRUE(text.empty());
  EXPECT_EQ(text.bytes(), 0U);
  EXPECT_STREQ(text.charPtr(), "");
  EXPECT_EQ(text.begin(), text.end());
  EXPECT_EQ(text, String(""));
}

TEST(StringTest, HoldsAnyOctets) {
  const String text("a\0\xff"sv);
  EXPECT_EQ(text.bytes(), 3U);
  EXPECT_EQ(text.stdString(), std::string("a\0\xff"sv));
  EXPECT_EQ(std::string(text.begin(), text.end()), text.view());
  EXPECT_FALSE(text == "a");
}

TEST(StringTest, CopiesShareOneBuffer) {
  const String text("shared");
  const String copy = text;  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(copy.charPtr(), text.charPtr());
}

TEST(StringTest, ACopyKeepsTheTextThatAnotherLetsGo) {
  String text("kept");
  String copy("let go");
  copy = text;
  text = String();
  EXPECT_EQ(copy, "kept");
  const String& itself = copy;
  copy = itself;
  EXPECT_EQ(copy, "kept");
  const String moved = std::move(copy);
  EXPECT_EQ(moved, "kept");
}

TEST(StringTest, ThreadsShareABuffer) {
  const auto text = std::make_unique<String>("shared by threads");
  const auto copyAndLetGo = [copy = *text] {
    for (int i = 0; i < 100'000; ++i) EXPECT_EQ(String(copy).bytes(), 17U);
  };
  std::thread first(copyAndLetGo);
  std::thread second(copyAndLetGo);
  first.join();
  second.join();
  EXPECT_EQ(*text, "shared by threads");
}

TEST(StringTest, ComparesOctetsAsUnsignedNumbers) {
  EXPECT_LT(String("a"), String("b"));
  EXPECT_LT(String("a"), String("aa"));
  EXPECT_LT(String("\x7f"), String("\x80"));
  EXPECT_LT(String(), String("\0"sv));
  EXPECT_EQ(String("a"), "a");
  EXPECT_NE(String("a"), String("b"));
}

TEST(StringTest, JoinsTexts) {
  EXPECT_EQ(String("a") + String("b"), "ab");
  const String text("a");
  EXPECT_EQ((text + String()).charPtr(), text.charPtr());
  EXPECT_EQ((String() + text).charPtr(), text.charPtr());
}

TEST(StringTest, HashesAndPrintsItsOctets) {
  const std::unordered_set<String> set{String("a"), String("a"), String()};
  EXPECT_EQ(set.size(), 2U);
  std::ostringstream out;
  out << String("a\0b"sv);
  EXPECT_EQ(out.str(), "a\0b"sv);
}

TEST(NameTest, ComparesAndPrintsAsItsText) {
  EXPECT_LT(Qel::Name("a"), Qel::Name("b"));
  EXPECT_EQ(Qel::Name("a"), Qel::Name(String("a")));
  std::ostringstream out;
  out << Qel::Name("generalMib");
  EXPECT_EQ(out.str(), "generalMib");
}

}  // namespace
