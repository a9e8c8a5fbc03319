#include "Kavra/Redis/RespParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kavra/Store.h"
#include "support/Random.h"

namespace Kavra::Redis {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using Kind = Reply::Kind;

constexpr std::size_t kMost = 4096;

std::string problemOf(RespParser& reader) {
  try {
    while (reader.take()) {
    }
    return "nothing";
  } catch (const StoreException& error) {
    return error.what();
  }
}

std::vector<Reply> takeAll(RespParser& reader) {
  std::vector<Reply> replies;
  while (auto reply = reader.take()) replies.push_back(std::move(*reply));
  return replies;
}

std::string wholeStream() {
  std::string stream("+OK\r\n-ERR no\r\n:-7\r\n$-1\r\n*-1\r\n$3\r\n");
  stream += std::string("a\0b", 3);
  return stream + "\r\n*2\r\n*1\r\n$1\r\nx\r\n:5\r\n*0\r\n";
}

void expectWholeStream(const std::vector<Reply>& replies) {
  ASSERT_EQ(replies.size(), 8U);
  EXPECT_TRUE(replies[0].isStatus("OK"));
  EXPECT_TRUE(replies[1].isError());
  EXPECT_EQ(replies[1].text, "ERR no");
  EXPECT_EQ(replies[2].kind, Kind::integer);
  EXPECT_EQ(replies[2].integer, -7);
  EXPECT_TRUE(replies[3].isNil());
  EXPECT_TRUE(replies[4].isNil());
  EXPECT_EQ(replies[5].text, std::string("a\0b", 3));
  ASSERT_EQ(replies[6].elements.size(), 2U);
  EXPECT_EQ(replies[6].elements[0].elements.at(0).text, "x");
  EXPECT_EQ(replies[6].elements[1].integer, 5);
  EXPECT_TRUE(replies[7].isArray());
  EXPECT_TRUE(replies[7].elements.empty());
}

TEST(RespParserTest, KnowsWhetherItIsInsideAReply) {
  RespParser reader(kMost);
  EXPECT_FALSE(reader.isInsideReply());
  for (const char* piece : {"+OK\r\n+", "QUEUED", "\r\n*1\r\n", "$1\r\n"}) {
    reader.feed(piece);
    takeAll(reader);
    EXPECT_TRUE(reader.isInsideReply()) << piece;
  }
  reader.feed("x\r\n");
  takeAll(reader);
  EXPECT_FALSE(reader.isInsideReply());
}

TEST(RespParserTest, ReadsEveryKindOfReplyWhereverItIsSplit) {
  const std::string stream = wholeStream();
  for (std::size_t split = 0; split <= stream.size(); ++split) {
    RespParser reader(kMost);
    reader.feed(std::string_view(stream).substr(0, split));
    std::vector<Reply> replies = takeAll(reader);
    reader.feed(std::string_view(stream).substr(split));
    for (Reply& reply : takeAll(reader)) replies.push_back(std::move(reply));
    expectWholeStream(replies);
  }
}

TEST(RespParserTest, RefusesWhatIsNotTheProtocol) {
  for (const char* text : {"HTTP/1.1 200 OK\r\n", "$-2\r\n", "*-2\r\n", "$x\r\n", "*1\r\nx\r\n",
                           ":99999999999999999999\r\n",
                           "*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n*1\r\n:1\r\n"}) {
    RespParser reader(kMost);
    reader.feed(text);
    EXPECT_THAT(problemOf(reader), HasSubstr("not the Redis protocol")) << text;
  }
}

TEST(RespParserTest, RefusesATextLargerThanAllowedBeforeAllOfItCame) {
  RespParser reader(kMost);
  reader.feed("$1000000000\r\n" + std::string(kMost, 'x'));
  EXPECT_THAT(problemOf(reader), HasSubstr("a text is larger than 4096 octets"));
}

std::string arrayOf(std::size_t elements, const std::string& element) {
  std::string array = "*" + std::to_string(elements) + "\r\n";
  for (std::size_t i = 0; i < elements; ++i) array += element;
  return array;
}

// The most integers that may be kept in a part.
constexpr std::size_t kMostElements = kMost / sizeof(Reply);
constexpr char kTooLarge[] = "an error: larger than 4096 octets";

TEST(RespParserTest, KeepsAnErrorInThePlaceOfAnArrayThatTakesMoreThanAllowed) {
  RespParser reader(kMost);
  const std::string most = arrayOf(kMostElements - 1, ":1\r\n");
  reader.feed(most + arrayOf(kMostElements, ":1\r\n") + most);
  const std::vector<Reply> replies = takeAll(reader);
  ASSERT_EQ(replies.size(), 3U);
  EXPECT_EQ(replies[0].elements.size(), kMostElements - 1);
  EXPECT_EQ(replies[1].description(), kTooLarge);
  EXPECT_THAT(replies[1].elements, IsEmpty());
  EXPECT_EQ(replies[2].elements.size(), kMostElements - 1);
}

TEST(RespParserTest, KeepsAnErrorInThePlaceOfATextThatTakesMoreThanAllowed) {
  RespParser reader(kMost);
  reader.feed("$4090\r\n" + std::string(4090, 'x') + "\r\n:5\r\n");
  const std::vector<Reply> replies = takeAll(reader);
  ASSERT_EQ(replies.size(), 2U);
  EXPECT_EQ(replies[0].description(), kTooLarge);
  EXPECT_EQ(replies[1].integer, 5);
}

TEST(RespParserTest, KeepsTheOtherPartsOfAReplyWhereOneTakesMoreThanAllowed) {
  const std::string nested = arrayOf(1, arrayOf(2, ":1\r\n"));
  const std::string stream =
      "*6\r\n:7\r\n" + arrayOf(kMostElements, ":1\r\n") + arrayOf(200, nested) + ":8\r\n" +
      arrayOf(2, "$2000\r\n" + std::string(2000, 'x') + "\r\n") + arrayOf(1, "+fits\r\n");
  RespParser reader(kMost);
  reader.mostPartsIs(4);
  // In pieces, as they come.
  std::vector<Reply> replies;
  for (std::size_t at = 0; at < stream.size(); at += 7) {
    reader.feed(std::string_view(stream).substr(at, 7));
    for (Reply& reply : takeAll(reader)) replies.push_back(std::move(reply));
  }
  ASSERT_EQ(replies.size(), 1U);
  const std::vector<Reply>& parts = replies[0].elements;
  ASSERT_EQ(parts.size(), 6U);
  EXPECT_EQ(parts[0].integer, 7);
  EXPECT_EQ(parts[1].elements.size(), kMostElements);
  EXPECT_EQ(parts[2].description(), kTooLarge);
  EXPECT_EQ(parts[3].integer, 8);
  EXPECT_EQ(parts[4].description(), kTooLarge);
  EXPECT_EQ(parts[5].elements.at(0).text, "fits");
}

TEST(RespParserTest, AllowsNoMorePartsSoMuchThanWereAskedFor) {
  RespParser reader(kMost);
  reader.mostPartsIs(2);
  const std::string part = arrayOf(kMostElements / 2, ":1\r\n");
  for (int time = 0; time < 2; ++time) {
    reader.feed(arrayOf(3, part) + arrayOf(4, part) + arrayOf(3, part));
    const std::vector<Reply> replies = takeAll(reader);
    ASSERT_EQ(replies.size(), 3U);
    EXPECT_EQ(replies[0].elements.size(), 3U);
    EXPECT_EQ(replies[1].description(), kTooLarge);
    EXPECT_EQ(replies[2].elements.at(2).elements.size(), kMostElements / 2);
  }
}

TEST(RespParserTest, BelievesNoAnnouncedNumberOfElements) {
  RespParser reader(kMost);
  reader.feed("*2147483647\r\n:1\r\n");
  EXPECT_FALSE(reader.take());
}

TEST(RespParserTest, CountsEachReplyByItself) {
  RespParser reader(kMost);
  const std::string text = "$1000\r\n" + std::string(1000, 'x') + "\r\n";
  for (int i = 0; i < 100; ++i) {
    reader.feed(text + text);
    EXPECT_EQ(takeAll(reader).size(), 2U);
  }
}

TEST(RespParserTest, SurvivesAnyMangledStream) {
  support::Random random;
  SCOPED_TRACE(random.replay());
  const std::string stream = wholeStream();
  int refused = 0;
  const int steps = support::randomSteps(20000);
  for (int step = 0; step < steps; ++step) {
    std::string mangled = stream;
    for (unsigned i = 0; i <= random.below(3); ++i) {
      mangled[random.below(static_cast<unsigned>(mangled.size()))] =
          static_cast<char>(random.below(256));
    }
    RespParser reader(kMost);
    reader.feed(std::string_view(mangled).substr(0, random.below(60)));
    if (problemOf(reader) != "nothing") ++refused;
  }
  EXPECT_GT(refused, steps / 100);
}

}  // namespace
}  // namespace Kavra::Redis
