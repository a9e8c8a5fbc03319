#include "MiscSnmp/ReloadCauseKey.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <tuple>

#include "Qel/Exception.h"

namespace MiscSnmp {
namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

constexpr U32 kLargest = 4294967295U;

ReloadCauseKey parsed(const Qel::String& text) {
  auto pos = text.begin();
  return ReloadCauseKey(pos, text.end());
}

TEST(ReloadCauseKeyTest, IsAllZeroByDefault) {
  const ReloadCauseKey key;
  EXPECT_EQ(key.unitIndex(), 0U);
  EXPECT_EQ(key.instanceIndex(), 0U);
  EXPECT_EQ(key.causeIndex(), 0U);
  EXPECT_EQ(key, ReloadCauseKey(0, 0, 0));
}

TEST(ReloadCauseKeyTest, KeepsItsFieldsThroughCopyAndAssignment) {
  const ReloadCauseKey key(1, 3, 2);
  const ReloadCauseKey copy(key);
  EXPECT_EQ(copy.unitIndex(), 1U);
  EXPECT_EQ(copy.instanceIndex(), 3U);
  EXPECT_EQ(copy.causeIndex(), 2U);
  ReloadCauseKey assigned;
  assigned = key;
  EXPECT_EQ(assigned, key);
}

TEST(ReloadCauseKeyTest, OrdersByUnitThenReloadThenCause) {
  EXPECT_TRUE(ReloadCauseKey(1, 0, 0) < ReloadCauseKey(2, 0, 0));
  EXPECT_TRUE(ReloadCauseKey(1, 5, 0) < ReloadCauseKey(1, 6, 0));
  EXPECT_TRUE(ReloadCauseKey(1, 5, 7) < ReloadCauseKey(1, 5, 8));
  EXPECT_FALSE(ReloadCauseKey(2, 0, 0) < ReloadCauseKey(1, 9, 9));
  EXPECT_TRUE(ReloadCauseKey(1, 9, 9) < ReloadCauseKey(2, 0, 0));
}

TEST(ReloadCauseKeyTest, ComparesEachFieldAsUnsigned) {
  EXPECT_TRUE(ReloadCauseKey(0, 0, 0) < ReloadCauseKey(0, 0, kLargest));
  EXPECT_FALSE(ReloadCauseKey(0, 0, kLargest) < ReloadCauseKey(0, 0, 0));
  EXPECT_TRUE(ReloadCauseKey(0, 0x7fffffff, 0) < ReloadCauseKey(0, 0x80000000, 0));
  EXPECT_TRUE(ReloadCauseKey(1, 0, 0) < ReloadCauseKey(kLargest, 0, 0));
}

TEST(ReloadCauseKeyTest, EqualKeysAreNeitherLess) {
  const ReloadCauseKey a(4, 5, 6);
  const ReloadCauseKey b(4, 5, 6);
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a < b);
  EXPECT_FALSE(b < a);
}

TEST(ReloadCauseKeyTest, EachFieldMakesKeysDiffer) {
  EXPECT_FALSE(ReloadCauseKey(1, 2, 3) == ReloadCauseKey(9, 2, 3));
  EXPECT_FALSE(ReloadCauseKey(1, 2, 3) == ReloadCauseKey(1, 9, 3));
  EXPECT_FALSE(ReloadCauseKey(1, 2, 3) == ReloadCauseKey(1, 2, 9));
}

TEST(ReloadCauseKeyTest, OrdersRandomKeysAsTheirTuples) {
  std::mt19937 random(20260101);
  std::uniform_int_distribution<U32> field(0, 3);
  const auto any = [&] {
    return std::tuple(field(random) * 0x55555555U, field(random), field(random));
  };
  for (int i = 0; i < 10000; ++i) {
    const auto a = any();
    const auto b = any();
    const auto keyA = std::make_from_tuple<ReloadCauseKey>(a);
    const auto keyB = std::make_from_tuple<ReloadCauseKey>(b);
    ASSERT_EQ(keyA < keyB, a < b) << keyA << keyB;
    ASSERT_EQ(keyA == keyB, a == b) << keyA << keyB;
  }
}

TEST(ReloadCauseKeyTest, TextFormNamesTheThreeFields) {
  EXPECT_EQ(valueToStrep(ReloadCauseKey(1, 3, 2)),
            "Value('MiscSnmp::ReloadCauseKey', ** {'unitIndex': 1, 'instanceIndex': 3, "
            "'causeIndex': 2})");
  EXPECT_EQ(valueToStrep(ReloadCauseKey(0, kLargest, 10)),
            "Value('MiscSnmp::ReloadCauseKey', ** {'unitIndex': 0, 'instanceIndex': 4294967295, "
            "'causeIndex': 10})");
}

TEST(ReloadCauseKeyTest, StreamsItsTextForm) {
  std::ostringstream out;
  const ReloadCauseKey key(7, 8, 9);
  out << key << "|";
  EXPECT_EQ(out.str(), valueToStrep(key).stdString() + "|");
}

TEST(ReloadCauseKeyTest, TextFormParsesBackToTheSameKey) {
  EXPECT_EQ(parsed(valueToStrep(ReloadCauseKey(1, 2, 3))), ReloadCauseKey(1, 2, 3));
  EXPECT_EQ(parsed(valueToStrep(ReloadCauseKey(kLargest, 0, kLargest))),
            ReloadCauseKey(kLargest, 0, kLargest));
}

TEST(ReloadCauseKeyTest, ParsingStopsBehindTheKey) {
  const Qel::String text = valueToStrep(ReloadCauseKey(1, 2, 3)) + Qel::String("x");
  auto pos = text.begin();
  EXPECT_EQ(ReloadCauseKey(pos, text.end()), ReloadCauseKey(1, 2, 3));
  EXPECT_EQ(pos, text.end() - 1);
}

TEST(ReloadCauseKeyTest, ParsingRefusesATextWithoutTheBlankBehindAFieldName) {
  const Qel::String text =
      "Value('MiscSnmp::ReloadCauseKey', ** {'unitIndex':1, 'instanceIndex': 2, 'causeIndex': 3})";
  auto pos = text.begin();
  EXPECT_THROW(ReloadCauseKey(pos, text.end()), Qel::ParseException);
  // It was the field's name that did not fit, not what stands before it.
  EXPECT_EQ(Qel::String(std::string_view(pos, 12)), "'unitIndex':");
}

TEST(ReloadCauseKeyTest, ParsingNamesTheFieldThatIsNoNumber) {
  const auto text = [](const char* unit, const char* instance, const char* cause) {
    return Qel::String(std::string("Value('MiscSnmp::ReloadCauseKey', ** {'unitIndex': ") + unit +
                       ", 'instanceIndex': " + instance + ", 'causeIndex': " + cause + "})");
  };
  EXPECT_THAT([&] { parsed(text("x", "2", "3")); },
              ThrowsMessage<Qel::ParseException>(HasSubstr("unitIndex")));
  EXPECT_THAT([&] { parsed(text("1", "-2", "3")); },
              ThrowsMessage<Qel::ParseException>(HasSubstr("instanceIndex")));
  EXPECT_THAT([&] { parsed(text("1", "2", "4294967296")); },
              ThrowsMessage<Qel::ParseException>(HasSubstr("causeIndex")));
}

TEST(ReloadCauseKeyTest, ParsingRefusesEveryTextThatIsCutShort) {
  const std::string whole = valueToStrep(ReloadCauseKey(1, 2, 3)).stdString();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_THROW(parsed(Qel::String(whole.substr(0, length))), Qel::ParseException) << length;
  }
}

}  // namespace
}  // namespace MiscSnmp
