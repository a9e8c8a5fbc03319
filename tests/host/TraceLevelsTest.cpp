#include "host/TraceLevels.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "Qel/Trace.h"
#include "host/Errors.h"

namespace Host {
namespace {

class TraceLevelsTest : public testing::Test {
 protected:
  ~TraceLevelsTest() override {
    for (const char* facility : {"TestA", "TestB"}) Qel::traceLevelIs(facility, 0);
    std::filesystem::remove(file_);
  }
  void write(const std::string& text) const { std::ofstream(file_) << text; }
  TraceLevels levels() const {
    return TraceLevels(readOptions({"--trace", "TestA=1", "--trace-file", file_}));
  }
  static int levelOf(const Qel::TraceHandle& handle) {
    int level = 0;
    while (handle.isEnabled(level + 1)) ++level;
    return level;
  }
  std::string complaint() const {
    try {
      levels();
    } catch (const StartError& error) {
      return error.what();
    }
    return "";
  }

  // Of the running test, since they run beside each other.
  const std::string file_ =
      std::string(testing::UnitTest::GetInstance()->current_test_info()->name()) + ".trace";
  const Qel::TraceHandle a_{"TestA"};
  const Qel::TraceHandle b_{"TestB"};
};

TEST_F(TraceLevelsTest, AreThoseOfTheFileOverThoseTyped) {
  write("# more\n\nTestB=8\n");
  const auto present = levels();
  EXPECT_EQ(levelOf(a_), 1);
  EXPECT_EQ(levelOf(b_), 8);
}

TEST_F(TraceLevelsTest, GoBackWhereTheFileNamesAFacilityNoMore) {
  write("TestA=2\nTestB=8\n");
  auto present = levels();
  EXPECT_EQ(levelOf(a_), 2);
  write("TestB=3");
  present.readAgain();
  EXPECT_EQ(levelOf(a_), 1);
  EXPECT_EQ(levelOf(b_), 3);
  write("");
  present.readAgain();
  EXPECT_EQ(levelOf(b_), 0);
}

TEST_F(TraceLevelsTest, StayWhereTheFileDoesNotHold) {
  write("TestB=8\n");
  auto present = levels();
  for (const char* text : {"TestB=1\nTestA\n", "TestB=1\nTestA=10\n", "TestB=1\n=3\n"}) {
    write(text);
    EXPECT_THROW(present.readAgain(), StartError);
  }
  std::filesystem::remove(file_);
  EXPECT_THROW(present.readAgain(), StartError);
  EXPECT_EQ(levelOf(a_), 1);
  EXPECT_EQ(levelOf(b_), 8);
}

TEST_F(TraceLevelsTest, NameTheFileAndTheLineThatDoNotHold) {
  EXPECT_EQ(complaint(), file_ + ": No such file or directory");
  write("TestB=8\nTestA=much\n");
  EXPECT_EQ(complaint(), file_ + ": line 2: expected FACILITY=LEVEL with a level of 0 to 9");
  std::filesystem::remove(file_);
  std::filesystem::create_directory(file_);
  EXPECT_EQ(complaint(), file_ + ": Is a directory");
}

}  // namespace
}  // namespace Host
