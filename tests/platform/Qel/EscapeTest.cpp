#include "Qel/Escape.h"

#include <gtest/gtest.h>

#include <string>

namespace Qel {
namespace {

TEST(EscapeTest, ALineHasNoControlCharacters) {
  EXPECT_EQ(printableLine("a\nb\tc\r\x1b[31m\x7f"), "a\\nb\\tc\\x0d\\x1b[31m\\x7f");
  EXPECT_EQ(printableLine(std::string("\0 ", 2)), "\\x00 ");
}

TEST(EscapeTest, ALineKeepsTextOfOtherScripts) {
  EXPECT_EQ(printableLine("Größe \u65e5\u672c \u00a0|"), "Größe \u65e5\u672c \u00a0|");
}

TEST(EscapeTest, ALineHidesControlCharactersOfEightBits) {
  EXPECT_EQ(printableLine("a\xc2\x9b\x33\x31mb"), "a\\xc2\\x9b31mb");
  EXPECT_EQ(printableLine("\xc2\x80\xc2\x9f"), "\\xc2\\x80\\xc2\\x9f");
}

TEST(EscapeTest, ALineHidesWhatTurnsTheDirectionOfATextOrBreaksALine) {
  EXPECT_EQ(printableLine("a\u202egnp.exe\u202c"), "a\\xe2\\x80\\xaegnp.exe\\xe2\\x80\\xac");
  EXPECT_EQ(printableLine("\u061c\u200e\u200f"), "\\xd8\\x9c\\xe2\\x80\\x8e\\xe2\\x80\\x8f");
  EXPECT_EQ(printableLine("\u2028\u202a\u2066\u2069"),
            "\\xe2\\x80\\xa8\\xe2\\x80\\xaa\\xe2\\x81\\xa6\\xe2\\x81\\xa9");
  // Their neighbours, and texts that run from right to left by themselves.
  const char kept[] = "\u061b\u061d\u200d\u2010\u2027\u202f\u2065\u206a \u05d0\u0639";
  EXPECT_EQ(printableLine(kept), kept);
}

TEST(EscapeTest, ALineShowsOctetsThatAreNoText) {
  EXPECT_EQ(printableLine("\xff|\xc3"), "\\xff|\\xc3");
  EXPECT_EQ(printableLine("\x9b"), "\\x9b");
}

TEST(EscapeTest, QuotedTextsAreTheSameOnlyWhenTheirOctetsAre) {
  EXPECT_EQ(quoted("plain ~"), "'plain ~'");
  EXPECT_EQ(quoted("it's"), "'it\\'s'");
  EXPECT_EQ(quoted("\\x41"), "'\\\\x41'");
  EXPECT_EQ(quoted("\n\x7f\xc3\xb6"), "'\\x0a\\x7f\\xc3\\xb6'");
  EXPECT_EQ(quoted(""), "''");
}

}  // namespace
}  // namespace Qel
