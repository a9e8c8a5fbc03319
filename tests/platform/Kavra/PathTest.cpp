#include "Kavra/Path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "Qel/Exception.h"
#include "Qel/String.h"
#include "support/ProblemOf.h"

namespace Kavra {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

TEST(PathTest, IsNamesJoinedBySlashes) {
  for (const char* path : {"a", "a/b", "cell/1/sys/reset/history", "a b/\xc3\xa4"}) {
    EXPECT_TRUE(isPath(path)) << path;
  }
}

TEST(PathTest, HasNoEmptyNamesControlCharactersOrTornCharacters) {
  for (const char* path : {"", "/", "/a", "a/", "a//b", "a\nb", "a\x7f", "a/\xff"}) {
    EXPECT_FALSE(isPath(path)) << testing::PrintToString(path);
  }
}

TEST(PathTest, IsAtMost1024BytesLong) {
  EXPECT_TRUE(isPath(std::string(1024, 'a')));
  EXPECT_FALSE(isPath(std::string(1025, 'a')));
}

std::string problemOf(const std::string& text) {
  return support::problemOf<Qel::RangeException>([&] { needPath(Qel::String(text)); });
}

TEST(PathTest, IsQuotedWhereItIsNeededAndWrong) {
  EXPECT_EQ(problemOf("a/b"), "nothing");
  for (const std::string path : {"", "/", "/a", "a/", "a//b"}) {
    EXPECT_THAT(problemOf(path), EndsWith("'" + path +
                                          "' is not a path: names joined by '/', none of them "
                                          "empty"));
  }
}

TEST(PathTest, IsRefusedForTheReasonThatThereIs) {
  EXPECT_THAT(problemOf("a\nb"), EndsWith(" is not a path: it has a control character"));
  EXPECT_THAT(problemOf("a\x7f"), EndsWith(" is not a path: it has a control character"));
  EXPECT_THAT(problemOf("a/\xff"), EndsWith(" is not a path: it is not UTF-8"));
  EXPECT_THAT(problemOf(std::string(1025, 'a')),
              EndsWith(" is not a path: it has 1025 octets, of which 1024 are the most"));
}

TEST(PathTest, IsNotQuotedBeyondItsFirst100Octets) {
  const std::string a(100, 'a');
  EXPECT_THAT(problemOf("/" + a.substr(1)), HasSubstr("'/" + a.substr(1) + "' is not"));
  EXPECT_THAT(problemOf(a + "//"), HasSubstr("'" + a + "'... is not"));
  EXPECT_THAT(problemOf(std::string(2000, 'a')), HasSubstr("'" + a + "'... is not"));
}

}  // namespace
}  // namespace Kavra
