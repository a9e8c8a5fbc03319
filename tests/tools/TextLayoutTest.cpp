#include "tools/TextLayout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "Qel/Utf8.h"
#include "support/Random.h"

namespace Tools {
namespace {

using testing::ElementsAre;

TEST(TextLayoutTest, CountsTheColumnsThatATerminalTakes) {
  EXPECT_EQ(widthOf(""), 0U);
  EXPECT_EQ(widthOf("Power loss"), 10U);
  EXPECT_EQ(widthOf("Straße"), 6U);
  EXPECT_EQ(widthOf("电源"), 4U) << "wide characters take two";
  EXPECT_EQ(widthOf("e\xcc\x81"), 1U) << "an accent that combines takes none";
  EXPECT_EQ(widthOf("😀"), 2U);
  EXPECT_EQ(widthOf("\xef\xbf\xbe"), 1U) << "what is no character is shown as something";
}

TEST(TextLayoutTest, BreaksLinesAtBlanks) {
  EXPECT_THAT(wrapped("one two three", 13), ElementsAre("one two three"));
  EXPECT_THAT(wrapped("one two three", 12), ElementsAre("one two", "three"));
  EXPECT_THAT(wrapped("one two three", 7), ElementsAre("one two", "three"));
  EXPECT_THAT(wrapped("one two three", 6), ElementsAre("one", "two", "three"));
}

TEST(TextLayoutTest, KeepsNoBlanksWhereALineBreaks) {
  EXPECT_THAT(wrapped("one    two", 5), ElementsAre("one", "two"));
  EXPECT_THAT(wrapped("one  two   ", 20), ElementsAre("one  two"));
  EXPECT_THAT(wrapped("  one two", 6), ElementsAre("  one", "two"));
  EXPECT_THAT(wrapped("  abcdef", 4), ElementsAre("  ab", "cdef"));
  EXPECT_THAT(wrapped("    ", 2), ElementsAre(""));
  EXPECT_THAT(wrapped("", 2), ElementsAre(""));
}

TEST(TextLayoutTest, BreaksAWordThatIsWiderThanALine) {
  EXPECT_THAT(wrapped("abcdefgh", 3), ElementsAre("abc", "def", "gh"));
  EXPECT_THAT(wrapped("a bcdefg", 3), ElementsAre("a", "bcd", "efg"));
  EXPECT_THAT(wrapped("电源故障", 5), ElementsAre("电源", "故障"));
  EXPECT_THAT(wrapped("aae\xcc\x81z", 3), ElementsAre("aae\xcc\x81", "z"));
}

// A text of a few words, of characters of every width.
std::string randomText(support::Random& random) {
  const std::vector<std::string> characters{"a", "b", " ", " ", "ß", "电", "\xcc\x81", "😀"};
  std::string text;
  for (unsigned count = random.below(60); count > 0; --count) text += characters[random.below(8)];
  return text;
}

TEST(TextLayoutTest, ShortensWhatIsLongerThanItMayBe) {
  EXPECT_EQ(shortened("one two", 7), "one two");
  EXPECT_EQ(shortened("one two three", 7), "one two ...");
  EXPECT_EQ(shortened("one two three", 6), "one ...");
  EXPECT_EQ(shortened("onetwothree", 6), "onetwo ...");
  EXPECT_EQ(shortened("", 6), "");
}

std::string withoutBlanks(std::string text) {
  std::erase(text, ' ');
  return text;
}

TEST(TextLayoutTest, RandomTextsFitAndLoseNothingButBlanks) {
  support::Random random;
  SCOPED_TRACE(random.replay());
  for (int step = support::randomSteps(3000); step > 0; --step) {
    const std::string text = randomText(random);
    const std::size_t most = 2 + random.below(20);
    std::string whole;
    for (const std::string& line : wrapped(text, most)) {
      ASSERT_LE(widthOf(line), most) << text;
      ASSERT_TRUE(Qel::isUtf8(line)) << text;
      ASSERT_FALSE(line.ends_with(' ')) << text;
      whole += line;
    }
    ASSERT_EQ(withoutBlanks(whole), withoutBlanks(text));
  }
}

}  // namespace
}  // namespace Tools
