#include "Kavra/Path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "Qel/Exception.h"

namespace Kavra {
namespace {

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

TEST(PathTest, IsQuotedWhereItIsNeededAndWrong) {
  EXPECT_NO_THROW(needPath("a/b"));
  try {
    needPath("/a");
    FAIL() << "nothing was raised";
  } catch (const Qel::RangeException& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("'/a' is not a path"));
  }
}

}  // namespace
}  // namespace Kavra
