#include "Kavra/RedisState.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Kavra {
namespace {

using testing::HasSubstr;
using Kind = RedisReply::Kind;

RedisReply text(const std::string& value) { return {Kind::text, 0, value, {}}; }
RedisReply error(const std::string& value) { return {Kind::error, 0, value, {}}; }
RedisReply log(const std::string& lastId) {
  return {Kind::array,
          0,
          {},
          {text("length"), {Kind::integer, 3, {}, {}}, text("last-generated-id"), text(lastId)}};
}
RedisState state(const std::string& epoch, const std::string& lastId) {
  return {text(epoch), log(lastId)};
}

TEST(RedisStateTest, ReadsEpochAndLastId) {
  const RedisState read = state("e", "17-3");
  EXPECT_EQ(read.epoch, "e");
  EXPECT_EQ(read.lastId.text(), "17-3");
  EXPECT_EQ(read.problem, "");
}

TEST(RedisStateTest, OfAnEmptyServerHasNoEpochAndNoEntry) {
  const RedisState read({}, error("ERR no such key"));
  EXPECT_EQ(read.epoch, std::nullopt);
  EXPECT_EQ(read.lastId.text(), "0-0");
  EXPECT_EQ(read.problem, "");
}

TEST(RedisStateTest, TellsWhichKeyCannotBeRead) {
  EXPECT_THAT(RedisState(error("WRONGTYPE"), log("1-1")).problem,
              HasSubstr("key kavra:epoch: an error: WRONGTYPE"));
  EXPECT_THAT(RedisState(text("e"), error("WRONGTYPE")).problem,
              HasSubstr("key kavra:log: an error: WRONGTYPE"));
  EXPECT_THAT(RedisState(text("e"), log("nonsense")).problem, HasSubstr("no last id"));
  EXPECT_THAT(RedisState(text("e"), text("x")).problem, HasSubstr("key kavra:log: a text"));
}

TEST(RedisStateTest, IsBeforeAnotherOnlyInItsOwnEpoch) {
  EXPECT_TRUE(state("e", "9-9").isBefore(state("e", "10-0")));
  EXPECT_TRUE(state("e", "10-0").isBefore(state("e", "10-1")));
  EXPECT_FALSE(state("e", "10-1").isBefore(state("e", "10-1")));
  EXPECT_FALSE(state("e", "11-0").isBefore(state("e", "10-1")));
  EXPECT_FALSE(state("f", "9-9").isBefore(state("e", "10-0")));
  EXPECT_FALSE(RedisState({}, log("1-1")).isBefore(RedisState({}, log("2-1"))));
}

TEST(RedisStreamIdTest, IsReadFromTwoNumbersOnly) {
  EXPECT_EQ(RedisStreamId::of("18446744073709551615-1")->milliseconds, 18446744073709551615U);
  for (const char* wrong : {"", "-", "1", "1-", "-1", "1-x", "18446744073709551616-1", "1-1-1"}) {
    EXPECT_EQ(RedisStreamId::of(wrong), std::nullopt) << wrong;
  }
}

}  // namespace
}  // namespace Kavra
