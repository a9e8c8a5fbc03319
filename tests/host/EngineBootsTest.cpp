#include "host/EngineBoots.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace Host {
namespace {

using std::chrono::seconds;
using std::chrono::sys_seconds;

constexpr sys_seconds k1970{seconds(12)};
constexpr sys_seconds k2020{seconds(1577836800)};
constexpr U32 kMost = 2147483647;

class EngineBootsTest : public testing::Test {
 protected:
  EngineBootsTest() {
    std::string name = (std::filesystem::temp_directory_path() / "boots-XXXXXX").string();
    directory_ = ::mkdtemp(name.data());
    file_ = directory_ + "/engine-boots-1";
  }
  ~EngineBootsTest() override { std::filesystem::remove_all(directory_); }

  void remembers(const std::string& text) { std::ofstream(file_) << text; }
  std::string remembered() const {
    std::ostringstream text;
    text << std::ifstream(file_).rdbuf();
    return text.str();
  }
  // Starts without a problem.
  U32 boots(sys_seconds now) {
    const auto counted = EngineBoots::ofFile(file_, now);
    EXPECT_EQ(counted.problem, "");
    EXPECT_EQ(remembered(), std::to_string(counted.count) + "\n");
    return counted.count;
  }

  std::string directory_;
  std::string file_;
};

TEST_F(EngineBootsTest, AreTheSecondsSince2020WhereTheClockGrows) {
  EXPECT_EQ(boots(k2020 + seconds(100)), 100U);
  EXPECT_EQ(boots(k2020 + seconds(170)), 170U);
}

TEST_F(EngineBootsTest, GrowWhereTheClockDoesNot) {
  EXPECT_EQ(boots(k2020 + seconds(100)), 100U);
  EXPECT_EQ(boots(k2020 + seconds(100)), 101U);
  EXPECT_EQ(boots(k1970), 102U);
  EXPECT_EQ(boots(k2020 + seconds(50)), 103U);
  EXPECT_EQ(boots(k2020 + seconds(200)), 200U);
}

TEST_F(EngineBootsTest, BeginWithOneIn1970) {
  EXPECT_EQ(EngineBoots::ofClock(k1970).count, 1U);
  EXPECT_EQ(boots(k1970), 1U);
  EXPECT_EQ(boots(k1970), 2U);
}

TEST_F(EngineBootsTest, StayAtTheirHighest) {
  EXPECT_EQ(EngineBoots::ofClock(k2020 + seconds(kMost) + seconds(1)).count, kMost);
  remembers("2147483646\n");
  EXPECT_EQ(boots(k1970), kMost);
  EXPECT_EQ(boots(k1970), kMost);
}

TEST_F(EngineBootsTest, BeginAnewOnADamagedFileAndSaySo) {
  for (const char* text : {"", "\n", "many", "-1", "2147483648", "1 2"}) {
    remembers(text);
    const auto counted = EngineBoots::ofFile(file_, k2020 + seconds(9));
    EXPECT_EQ(counted.count, 9U);
    EXPECT_EQ(counted.problem, file_ + ": not a count of starts");
    EXPECT_EQ(remembered(), "9\n");
  }
}

TEST_F(EngineBootsTest, FollowTheClockWithoutAPlaceAndSaySo) {
  std::filesystem::remove_all(directory_);
  const auto counted = EngineBoots::ofFile(file_, k2020 + seconds(9));
  EXPECT_EQ(counted.count, 9U);
  EXPECT_EQ(counted.problem, file_ + ": No such file or directory");
}

TEST_F(EngineBootsTest, LeaveNothingElseBehind) {
  boots(k1970);
  boots(k1970);
  const std::filesystem::directory_iterator entries(directory_);
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
}

TEST_F(EngineBootsTest, AreRememberedOverARestOfAnEarlierEnd) {
  std::ofstream(file_ + ".new") << "half a line of a process that was killed";
  EXPECT_EQ(boots(k1970), 1U);
}

}  // namespace
}  // namespace Host
