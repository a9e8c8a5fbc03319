#include "Kavra/Json/Text.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <string>

#include "Qel/Limits.h"

namespace Kavra::Json {
namespace {

using Qel::Document;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

std::string problemOf(const std::string& json) {
  try {
    read(json);
    return "nothing";
  } catch (const Exception& error) {
    return error.what();
  }
}

std::string line(const Document& document) { return write(document, Form::line); }

TEST(TextTest, ReadsEveryKindOfValueInTheOrderOfTheText) {
  const Document::Map expected{
      {"z", Document()},
      {"b", true},
      {"n", std::int64_t{-5}},
      {"u", std::uint64_t{18446744073709551615U}},
      {"d", 1.5},
      {"t", Qel::String("\xc3\xa4\n")},
      {"l", Document::List{Document(std::uint64_t{1}), Document(Document::Map{})}}};
  EXPECT_EQ(read(R"({"z": null, "b": true, "n": -5, "u": 18446744073709551615, "d": 1.5,
                       "t": "\u00e4\n", "l": [1, {}]})"),
            Document(expected));
}

TEST(TextTest, WritesOneLineThatReadsBackTheSame) {
  const std::string json =
      R"({"z": null, "b": false, "n": -5, "u": 18446744073709551615, "d": 1700000000.9, )"
      R"("t": "ä\"\\\n\u0000", "l": [1, {}, []]})";
  EXPECT_EQ(line(read(json)), json);
}

TEST(TextTest, EscapesControlCharactersQuotesAndBackslashesAlone) {
  for (int octet = 0; octet < 0x80; ++octet) {
    const std::string text = std::string("a") + static_cast<char>(octet) + "ä";
    const Document document = Qel::String(text);
    const bool isEscaped = octet < 0x20 || octet == '"' || octet == '\\';
    EXPECT_EQ(line(document) != '"' + text + '"', isEscaped) << octet;
    EXPECT_EQ(read(line(document)), document) << octet;
  }
  EXPECT_EQ(line(read(R"({"a\nb": 1})")), R"({"a\nb": 1})");
}

TEST(TextTest, WritesAnIndentedLineForEachMember) {
  EXPECT_EQ(write(read(R"({"a": [1, {"b": {}}], "c": []})"), Form::pretty),
            "{\n  \"a\": [\n    1,\n    {\n      \"b\": {}\n    }\n  ],\n  \"c\": []\n}");
}

TEST(TextTest, KeepsWholeNumbersAndDoublesApart) {
  EXPECT_EQ(line(read("[1, 1.0, 1e2, -0.0]")), "[1, 1.0, 100.0, -0.0]");
}

TEST(TextTest, CarriesAnyOctetsAsBase64) {
  const Document text = Qel::String("\xff\xfe");
  EXPECT_EQ(line(text), R"({"base64": "//4="})");
  EXPECT_EQ(read(R"({"base64": "//4="})"), text);
  EXPECT_EQ(read(R"([{"base64": ""}])"), Document(Document::List{Document("")}));
  std::string all;
  for (int octet = 0; octet < 256; ++octet) all.push_back(static_cast<char>(octet));
  EXPECT_EQ(read(line(Qel::String(all))), Document(Qel::String(all)));
}

TEST(TextTest, TakesOtherMapsWithABase64MemberAsTheyAre) {
  EXPECT_EQ(line(read(R"({"base64": 5})")), R"({"base64": 5})");
  EXPECT_EQ(line(read(R"({"base64": "x", "a": 1})")), R"({"base64": "x", "a": 1})");
}

TEST(TextTest, RefusesAWrongBase64WithItsPlace) {
  EXPECT_EQ(problemOf(R"({"a": [1, {"base64": "x"}]})"), "/a/1: not the base64 form of a text");
}

TEST(TextTest, RefusesAMemberThatStandsTwiceWithItsPlace) {
  EXPECT_EQ(problemOf(R"({"a": {"b": 1, "b": 1}})"), "/a/b: member stands twice");
  EXPECT_EQ(problemOf(R"({"a/b": 1, "c": 2, "a/b": 1})"), "/a/b: member stands twice");
}

TEST(TextTest, RefusesAMemberThatStandsTwiceAmongMany) {
  std::string members = R"("": 0)";
  for (int i = 0; i < 100; ++i) members += fmt::format(R"(, "{}": {{"": 0}})", i);
  EXPECT_EQ(problemOf("{" + members + "}"), "nothing");
  for (const char* name : {"", "0", "16", "99"}) {
    EXPECT_EQ(problemOf(fmt::format(R"({{{}, "{}": 1}})", members, name)),
              fmt::format("/{}: member stands twice", name));
  }
}

TEST(TextTest, RefusesNumbersThatNoDocumentHoldsWithTheirPlace) {
  EXPECT_EQ(problemOf(R"({"a": 18446744073709551616})"),
            "/a: integer 18446744073709551616 has more than 64 bits");
  EXPECT_EQ(problemOf("[-9223372036854775809]"),
            "/0: integer -9223372036854775809 has more than 64 bits");
  EXPECT_THAT(problemOf(R"({"a": {"time": 1e999}})"),
              AllOf(HasSubstr("/a/time: "), HasSubstr("1e999")));
  EXPECT_THAT(problemOf("[1, NaN]"), HasSubstr("line 1, column 5"));
}

TEST(TextTest, RefusesWhatIsNoJsonWithLineAndColumn) {
  EXPECT_THAT(problemOf(""), HasSubstr("line 1, column 1"));
  EXPECT_THAT(problemOf("{\"a\": 1,\n \"b\"}"), HasSubstr("line 2, column 5"));
  EXPECT_THAT(problemOf("{} {}"), HasSubstr("line 1, column 4"));
  EXPECT_THAT(problemOf("{\"a\": \"\xff\"}"), HasSubstr("line 1, column 8"));
  EXPECT_THAT(problemOf(R"(["\ud800"])"), HasSubstr("line 1, column"));
  EXPECT_THAT(problemOf("[1"), Not(HasSubstr("json.exception")));
}

TEST(TextTest, ShortensWhatTheParserQuotes) {
  EXPECT_LT(problemOf("[\"" + std::string(1000000, 'x')).size(), 400U);
}

TEST(TextTest, RefusesMoreThan32Levels) {
  const auto nested = [](std::size_t levels) {
    return std::string(levels, '[') + std::string(levels, ']');
  };
  EXPECT_EQ(problemOf(nested(32)), "nothing");
  EXPECT_THAT(problemOf(nested(33)), HasSubstr("nested deeper than 32 levels"));
  EXPECT_THAT(problemOf(nested(1000000)), HasSubstr("nested deeper than 32 levels"));
}

// What stands behind the value that is too much is no JSON, and is never looked at.
TEST(TextTest, ReadsNoFurtherThanTheFirstValueThatIsTooMuch) {
  std::string json = "[0";
  // With the list itself, as many as there may be.
  for (std::size_t i = 2; i < Qel::Limits::kMostDocumentValues; ++i) json += ",0";
  EXPECT_EQ(problemOf(json + "]"), "nothing");
  EXPECT_THAT(problemOf(json + " nonsense"), HasSubstr("line 1, column"));
  EXPECT_EQ(problemOf(json + ",0]"), "/: the document has more than 380000 values");
  EXPECT_EQ(problemOf(json + ",0,0 nonsense"), "/380000: the document has more than 380000 values");
}

TEST(TextTest, ReadsNoFurtherThanTheFirstOctetsThatAreTooMany) {
  const std::string half(Qel::Limits::kMostDocumentOctets / 2, 'x');
  const std::string json = R"({"a": ")" + half.substr(1) + R"(", "b": ")" + half.substr(1);
  EXPECT_EQ(problemOf(json + R"("})"), "nothing");
  EXPECT_EQ(problemOf(json + R"(x" nonsense)"),
            "/b: the document's texts and names take more than 8388608 octets");
}

TEST(TextTest, CountsTheOctetsThatABase64StandsFor) {
  const std::string octets(Qel::Limits::kMostDocumentOctets, '\xff');
  EXPECT_EQ(read(line(Qel::String(octets))), Document(Qel::String(octets)));
  EXPECT_EQ(problemOf(line(Qel::String(octets + "x"))),
            "/: the document's texts and names take more than 8388608 octets");
  EXPECT_EQ(problemOf(R"({"base64": ")" + std::string(octets.size(), 'x') + R"(", "a": 1})"),
            "/: the document's texts and names take more than 8388608 octets");
}

TEST(TextTest, DoesNotWriteWhatJsonCannotHold) {
  EXPECT_THROW(line(std::numeric_limits<double>::infinity()), Exception);
  EXPECT_THROW(line(std::numeric_limits<double>::quiet_NaN()), Exception);
  EXPECT_THROW(line(Document::Map{{"\xff", true}}), Exception);
}

TEST(TextTest, SpellsWhatATerminalObeysWhereItIsPrinted) {
  const Document document = Document::Map{{"a\x7f", Qel::String("\033\n\xc2\x80\xc2\x9f\u202e")},
                                          {"\u00a0", Qel::String("\u00df\\")}};
  const std::string printed = writePrintable(document, Form::pretty);
  EXPECT_EQ(printed,
            "{\n  \"a\\u007f\": \"\\u001b\\n\\u0080\\u009f\\u202e\",\n"
            "  \"\u00a0\": \"\u00df\\\\\"\n}\n");
  EXPECT_EQ(read(printed), document);
  EXPECT_EQ(writePrintable(Document(true), Form::line), "true\n");
}

TEST(TextTest, ReadsAndWritesManyMembersInLinearTime) {
  std::string json = "{";
  for (int i = 0; i < 200000; ++i) json += "\"member " + std::to_string(i) + "\": 1, ";
  json += "\"last\": 1}";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(line(read(json)), json);
  // Comparing each with each would take minutes.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

}  // namespace
}  // namespace Kavra::Json
