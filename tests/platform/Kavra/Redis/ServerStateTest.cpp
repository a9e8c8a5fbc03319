#include "Kavra/Redis/ServerState.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Kavra::Redis {
namespace {

using testing::HasSubstr;
using Kind = Reply::Kind;

Reply text(const std::string& value) { return {Kind::text, 0, value, {}}; }
Reply error(const std::string& value) { return {Kind::error, 0, value, {}}; }
Reply log(const std::string& lastId) {
  return {Kind::array,
          0,
          {},
          {text("length"), {Kind::integer, 3, {}, {}}, text("last-generated-id"), text(lastId)}};
}
ServerState state(const std::string& epoch, const std::string& lastId) {
  return {text(epoch), log(lastId)};
}

TEST(ServerStateTest, ReadsEpochAndLastId) {
  const ServerState read = state("e", "17-3");
  EXPECT_EQ(read.epoch, "e");
  EXPECT_EQ(read.lastId.text(), "17-3");
  EXPECT_EQ(read.problem, "");
}

TEST(ServerStateTest, OfAnEmptyServerHasNoEpochAndNoEntry) {
  const ServerState read({}, error("ERR no such key"));
  EXPECT_EQ(read.epoch, std::nullopt);
  EXPECT_EQ(read.lastId.text(), "0-0");
  EXPECT_EQ(read.problem, "");
}

TEST(ServerStateTest, TellsWhichKeyCannotBeRead) {
  EXPECT_THAT(ServerState(error("WRONGTYPE"), log("1-1")).problem,
              HasSubstr("key kavra:epoch: an error: WRONGTYPE"));
  EXPECT_THAT(ServerState(text("e"), error("WRONGTYPE")).problem,
              HasSubstr("key kavra:log: an error: WRONGTYPE"));
  EXPECT_THAT(ServerState(text("e"), log("nonsense")).problem, HasSubstr("no last id"));
  EXPECT_THAT(ServerState(text("e"), text("x")).problem, HasSubstr("key kavra:log: a text"));
}

TEST(ServerStateTest, IsBeforeAnotherOnlyInItsOwnEpoch) {
  EXPECT_TRUE(state("e", "9-9").isBefore(state("e", "10-0")));
  EXPECT_TRUE(state("e", "10-0").isBefore(state("e", "10-1")));
  EXPECT_FALSE(state("e", "10-1").isBefore(state("e", "10-1")));
  EXPECT_FALSE(state("e", "11-0").isBefore(state("e", "10-1")));
  EXPECT_FALSE(state("f", "9-9").isBefore(state("e", "10-0")));
  EXPECT_FALSE(ServerState({}, log("1-1")).isBefore(ServerState({}, log("2-1"))));
}

TEST(StreamIdTest, IsReadFromTwoNumbersOnly) {
  EXPECT_EQ(StreamId::of("18446744073709551615-1")->milliseconds, 18446744073709551615U);
  for (const char* wrong : {"", "-", "1", "1-", "-1", "1-x", "18446744073709551616-1", "1-1-1"}) {
    EXPECT_EQ(StreamId::of(wrong), std::nullopt) << wrong;
  }
}

}  // namespace
}  // namespace Kavra::Redis
