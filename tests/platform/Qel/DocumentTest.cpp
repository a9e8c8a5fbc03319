#include "Qel/Document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "support/ProblemOf.h"

namespace {

using Qel::Document;
using Qel::DocumentReader;
using Qel::String;
using testing::ElementsAre;

Document history() {
  const Document cause(Document::Map{{"description", "Power loss"}, {"time", 1700000000.9}});
  const Document bad(Document::Map{{"description", U32{7}}, {"time", "noon"}});
  const Document instance(Document::Map{{"causeQ", Document(Document::List{cause, bad})}});
  return Document(Document::Map{{"type", "System::ResetCauseHistory"},
                                {"rebootHistory", Document(Document::Map{{"0", instance}})}});
}

template <class Read>
std::string refusal(const Read& read) {
  return support::problemOf<Qel::DocumentException>(read);
}

TEST(DocumentTest, HoldsOneKindOfValue) {
  EXPECT_TRUE(Document().isNull());
  EXPECT_STREQ(Document().kind(), "null");
  EXPECT_STREQ(Document(true).kind(), "a bool");
  EXPECT_STREQ(Document(std::int64_t{-1}).kind(), "an integer");
  EXPECT_STREQ(Document(U32{1}).kind(), "an integer");
  EXPECT_STREQ(Document(0.5).kind(), "a number");
  EXPECT_STREQ(Document("text").kind(), "a text");
  EXPECT_STREQ(Document(Document::List{}).kind(), "a list");
  EXPECT_STREQ(Document(Document::Map{}).kind(), "a map");
  EXPECT_EQ(*Document("text").as<String>(), "text");
  EXPECT_EQ(Document("text").as<bool>(), nullptr);
}

TEST(DocumentTest, FindsMembersOfMapsAlone) {
  const Document document = history();
  ASSERT_NE(document.member("type"), nullptr);
  EXPECT_EQ(*document.member("type"), Document("System::ResetCauseHistory"));
  EXPECT_EQ(document.member("colour"), nullptr);
  EXPECT_EQ(Document("text").member("type"), nullptr);
}

TEST(DocumentTest, ComparesAsAWhole) {
  EXPECT_EQ(history(), history());
  EXPECT_NE(Document(Document::List{}), Document(Document::Map{}));
  EXPECT_NE(Document(U32{1}), Document(1.0));
}

TEST(DocumentReaderTest, ReadsValuesThatFit) {
  const Document flag(true);
  EXPECT_TRUE(DocumentReader(flag).readBool());
  const Document most(std::uint64_t{4294967295});
  EXPECT_EQ(DocumentReader(most).readU32(), 4294967295U);
  const Document positive(std::int64_t{7});
  EXPECT_EQ(DocumentReader(positive).readU32(), 7U);
  EXPECT_EQ(DocumentReader(positive).readFiniteNumber(), 7.0);
  EXPECT_EQ(DocumentReader(most).readFiniteNumber(), 4294967295.0);
  const Document number(-0.5);
  EXPECT_EQ(DocumentReader(number).readFiniteNumber(), -0.5);
  const Document text("text");
  EXPECT_EQ(DocumentReader(text).readText(4), "text");
}

TEST(DocumentReaderTest, RefusesEveryOtherKind) {
  const Document text("1");
  const DocumentReader reader(text);
  EXPECT_EQ(refusal([&] { reader.readBool(); }), "/: expected a bool but found a text");
  EXPECT_EQ(refusal([&] { reader.readU32(); }), "/: expected an integer but found a text");
  EXPECT_EQ(refusal([&] { reader.readFiniteNumber(); }), "/: expected a number but found a text");
  EXPECT_EQ(refusal([&] { reader.readList(9); }), "/: expected a list but found a text");
  EXPECT_EQ(refusal([&] { reader.readMap(9); }), "/: expected a map but found a text");
  EXPECT_EQ(refusal([&] { reader.member("a"); }), "/: expected a map but found a text");
  EXPECT_EQ(refusal([&] { reader.needOnly({}); }), "/: expected a map but found a text");
  const Document null;
  EXPECT_EQ(refusal([&] { DocumentReader(null).readText(9); }),
            "/: expected a text but found null");
  const Document fraction(3.0);
  EXPECT_EQ(refusal([&] { DocumentReader(fraction).readU32(); }),
            "/: expected an integer but found a number");
}

TEST(DocumentReaderTest, RefusesNumbersOutsideTheRange) {
  const Document numbers[] = {Document(std::int64_t{-1}), Document(std::uint64_t{4294967296}),
                              Document(std::int64_t{4294967296})};
  for (const Document& number : numbers) {
    EXPECT_EQ(refusal([&] { DocumentReader(number).readU32(); }),
              "/: outside the range 0 to 4294967295");
  }
}

TEST(DocumentReaderTest, RefusesNumbersThatAreNotFinite) {
  using Limits = std::numeric_limits<double>;
  for (const double value : {Limits::infinity(), -Limits::infinity(), Limits::quiet_NaN()}) {
    const Document number(value);
    EXPECT_EQ(refusal([&] { DocumentReader(number).readFiniteNumber(); }),
              "/: not a finite number");
  }
}

TEST(DocumentReaderTest, RefusesMoreThanTheMost) {
  const Document text("three");
  EXPECT_EQ(refusal([&] { DocumentReader(text).readText(4); }),
            "/: text of 5 bytes is longer than 4");
  const Document list(Document::List{true, false});
  EXPECT_EQ(DocumentReader(list).readList(2).size(), 2U);
  EXPECT_EQ(refusal([&] { DocumentReader(list).readList(1); }),
            "/: list of 2 items is longer than 1");
  const Document map(Document::Map{{"a", true}, {"b", true}});
  EXPECT_EQ(DocumentReader(map).readMap(2).size(), 2U);
  EXPECT_EQ(refusal([&] { DocumentReader(map).readMap(1); }),
            "/: map of 2 members is larger than 1");
}

TEST(DocumentReaderTest, KnowsThePlaceOfWhatDoesNotFit) {
  const Document document = history();
  const DocumentReader causes =
      DocumentReader(document).member("rebootHistory").member("0").member("causeQ");
  EXPECT_EQ(causes.place(), "/rebootHistory/0/causeQ");
  const DocumentReader bad = causes.readList(9).at(1);
  EXPECT_EQ(refusal([&] { bad.member("time").readFiniteNumber(); }),
            "/rebootHistory/0/causeQ/1/time: expected a number but found a text");
  EXPECT_EQ(refusal([&] { bad.member("description").readText(9); }),
            "/rebootHistory/0/causeQ/1/description: expected a text but found an integer");
  EXPECT_EQ(refusal([&] { bad.member("detail"); }),
            "/rebootHistory/0/causeQ/1: member 'detail' is missing");
  EXPECT_EQ(refusal([&] { bad.fail("no good"); }), "/rebootHistory/0/causeQ/1: no good");
}

TEST(DocumentReaderTest, ReadsMembersInOrderWithTheirPlaces) {
  const Document map(Document::Map{{"b", true}, {"a", false}});
  std::vector<std::string> places;
  for (const auto& [name, reader] : DocumentReader(map).readMap(9)) {
    places.push_back(name.stdString() + " at " + reader.place());
  }
  EXPECT_THAT(places, ElementsAre("b at /b", "a at /a"));
}

TEST(DocumentReaderTest, AMemberMayBeAbsentOrUnknown) {
  const Document map(Document::Map{{"a", true}, {"b", true}});
  const DocumentReader reader(map);
  EXPECT_EQ(&reader.optionalMember("a")->document(), map.member("a"));
  EXPECT_FALSE(reader.optionalMember("c"));
  EXPECT_NO_THROW(reader.needOnly({"a", "b", "c"}));
  EXPECT_EQ(refusal([&] { reader.needOnly({"a"}); }), "/: unknown member 'b'");
}

}  // namespace
