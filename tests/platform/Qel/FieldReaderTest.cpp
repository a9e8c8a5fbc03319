#include "Qel/FieldReader.h"

#include <gtest/gtest.h>

#include <string>

#include "support/ProblemOf.h"

namespace {

using Fields = Qel::DocumentCodec::Fields;
using Qel::FieldReader;

template <class Read>
std::string refused(const Read& read) {
  return support::problemOf<Qel::DocumentException>(read);
}

TEST(FieldReaderTest, TakesEachFieldOnce) {
  const Fields fields = {{"n", "4294967295"}, {"on", "true"}, {"t", "-1.5e3"}, {"d", ""}};
  FieldReader reader(fields);
  EXPECT_TRUE(reader.has("n"));
  EXPECT_EQ(reader.takeU32("n"), 4294967295U);
  EXPECT_FALSE(reader.has("n"));
  EXPECT_TRUE(reader.takeBool("on"));
  EXPECT_EQ(reader.takeFiniteNumber("t"), -1500.0);
  EXPECT_EQ(refused([&] { reader.needNoMore(); }), "d: unknown field");
  EXPECT_EQ(reader.takeText("d"), "");
  EXPECT_NO_THROW(reader.needNoMore());
  EXPECT_EQ(refused([&] { reader.takeText("d"); }), "d: field is missing");
}

TEST(FieldReaderTest, RefusesANameThatStandsTwice) {
  const Fields fields = {{"a", "1"}, {"a", "1"}};
  EXPECT_EQ(refused([&] { FieldReader reader(fields); }), "a: stands twice");
}

TEST(FieldReaderTest, TellsManyFieldsApart) {
  Fields fields;
  for (int i = 0; i < 1000; ++i) fields.emplace_back(std::to_string(i), std::to_string(i));
  FieldReader reader(fields);
  for (int i = 999; i > 0; i -= 2) EXPECT_EQ(reader.takeText(std::to_string(i)), std::to_string(i));
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(reader.has(std::to_string(i)), i % 2 == 0) << i;
  EXPECT_FALSE(reader.has("1000"));
  EXPECT_EQ(refused([&] { reader.needNoMore(); }), "0: unknown field");
  fields.push_back(fields[500]);
  EXPECT_EQ(refused([&] { FieldReader again(fields); }), "500: stands twice");
}

TEST(FieldReaderTest, HasNoFieldOfNone) {
  const Fields none;
  const FieldReader reader(none);
  EXPECT_FALSE(reader.has(""));
  EXPECT_NO_THROW(reader.needNoMore());
}

TEST(FieldReaderTest, RefusesWhatIsNoUnsignedNumber) {
  for (const char* text : {"", "-1", "+1", " 1", "1 ", "1.0", "0x1", "4294967296"}) {
    const Fields fields = {{"n", text}};
    FieldReader reader(fields);
    EXPECT_EQ(refused([&] { reader.takeU32("n"); }), "n: not an unsigned 32-bit number") << text;
  }
}

TEST(FieldReaderTest, RefusesWhatIsNeitherTrueNorFalse) {
  for (const char* text : {"", "True", "1", "false "}) {
    const Fields fields = {{"on", text}};
    FieldReader reader(fields);
    EXPECT_EQ(refused([&] { reader.takeBool("on"); }), "on: not true or false") << text;
  }
  const Fields off = {{"on", "false"}};
  EXPECT_FALSE(FieldReader(off).takeBool("on"));
}

TEST(FieldReaderTest, RefusesWhatIsNoFiniteNumber) {
  for (const char* text : {"", "nan", "inf", "-inf", "1e999", "1,5", "1.5 ", "noon"}) {
    const Fields fields = {{"t", text}};
    FieldReader reader(fields);
    EXPECT_EQ(refused([&] { reader.takeFiniteNumber("t"); }), "t: not a finite number") << text;
  }
}

}  // namespace
