#include "host/ToldCauses.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "host/Log.h"

namespace Host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

class ToldCausesTest : public testing::Test {
 protected:
  ToldCausesTest() {
    std::string name = (std::filesystem::temp_directory_path() / "told-XXXXXX").string();
    directory_ = ::mkdtemp(name.data());
    file_ = directory_ + "/told-causes-1";
    processLog().sinkIs([this](int, std::string_view text) { said_.emplace_back(text); });
  }
  ~ToldCausesTest() override {
    processLog().sinkIs({});
    std::filesystem::remove_all(directory_);
  }

  ReloadNews::Told read() const { return ToldCauses(file_).read(); }
  std::string text() const {
    std::ostringstream text;
    text << std::ifstream(file_).rdbuf();
    return text.str();
  }

  std::string directory_;
  std::string file_;
  std::vector<std::string> said_;
};

TEST_F(ToldCausesTest, AreNoneAtFirst) {
  EXPECT_THAT(read(), IsEmpty());
  EXPECT_THAT(said_, IsEmpty());
}

TEST_F(ToldCausesTest, AreKeptFromProcessToProcess) {
  {
    ToldCauses told(file_);
    told.read();
    told.toldIs(0, 7);
    told.toldIs(2, 18446744073709551615U);
    told.toldIs(0, 8);
  }
  EXPECT_EQ(text(), "0 8\n2 18446744073709551615\n");
  EXPECT_THAT(read(), ElementsAre(Pair(0U, 8U), Pair(2U, 18446744073709551615U)));
  EXPECT_THAT(said_, IsEmpty());
}

TEST_F(ToldCausesTest, KeepThoseOfUnitsThatAreNotThereNow) {
  std::ofstream(file_) << "2 5\n";
  ToldCauses told(file_);
  told.read();
  told.toldIs(0, 7);
  EXPECT_EQ(text(), "0 7\n2 5\n");
}

TEST_F(ToldCausesTest, BeginAnewWhereTheFileIsDamaged) {
  for (const auto* damage : {"0", "0 x\n", "0 1 2\n", "-1 2\n", "0 18446744073709551616\n"}) {
    std::ofstream(file_) << damage;
    said_.clear();
    EXPECT_THAT(read(), IsEmpty()) << damage;
    EXPECT_THAT(said_, ElementsAre(file_ + ": not what was told of units: nobody is told of what "
                                           "changed while the agent was away"))
        << damage;
    std::filesystem::remove(file_);
    // Each is the same event to the log, which tells it once a second.
    processLog().tellAll();
  }
}

TEST_F(ToldCausesTest, TellOnceThatTheyCannotBeKept) {
  std::filesystem::remove_all(directory_);
  ToldCauses told(file_);
  told.read();
  told.toldIs(0, 7);
  told.toldIs(0, 8);
  processLog().tellAll();  // what the log holds back of a line that repeats
  EXPECT_THAT(said_, ElementsAre(HasSubstr(file_ + ": No such file or directory")));
  std::filesystem::create_directory(directory_);
  told.toldIs(0, 9);
  EXPECT_EQ(text(), "0 9\n");
}

TEST_F(ToldCausesTest, AreKeptNowhereWithoutAName) {
  ToldCauses told("");
  told.read();
  told.toldIs(0, 7);
  EXPECT_THAT(said_, IsEmpty());
}

}  // namespace
}  // namespace Host
