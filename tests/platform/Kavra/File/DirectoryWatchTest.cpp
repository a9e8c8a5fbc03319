#include "Kavra/File/DirectoryWatch.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>

#include "Kavra/Store.h"
#include "Qel/PollEventLoop.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "platform/Kavra/RunUntil.h"
#include "support/LiveObjects.h"
#include "support/ManualEventLoop.h"

namespace Kavra::File {
namespace {

namespace fs = std::filesystem;

class DirectoryWatchTest : public support::LiveObjectsTest {
 protected:
  Qel::Ptr<DirectoryWatch> watch(const fs::path& directory) {
    return Qel::make<DirectoryWatch>(loop_, directory.string(), "kavra.json", [this] { ++calls_; });
  }
  // Whether the change was told of.
  bool isTold(const std::function<void()>& change) {
    calls_ = 0;
    change();
    return kavratest::runUntil(loop_, [this] { return calls_ > 0; });
  }
  // Whether nothing is told although everything that there is to read was read.
  bool isSilent(const std::function<void()>& change) {
    calls_ = 0;
    change();
    while (loop_.runOnce(0.0) > 0) {
    }
    return calls_ == 0;
  }

  const kavratest::DatabaseDirectory directory_;
  Qel::PollEventLoop loop_;
  int calls_ = 0;
};

TEST_F(DirectoryWatchTest, TellsOfEachWayInWhichAFileChanges) {
  const auto watch = this->watch(directory_.path());
  EXPECT_TRUE(isTold([&] { directory_.write("created"); }));
  EXPECT_TRUE(isTold([&] { directory_.write("rewritten"); }));
  EXPECT_TRUE(isTold([&] { directory_.replace("replaced"); }));
  EXPECT_TRUE(isTold([&] { fs::rename(directory_.file(), directory_.path() / "away"); }));
  EXPECT_TRUE(isTold([&] { fs::rename(directory_.path() / "away", directory_.file()); }));
  EXPECT_TRUE(isTold([&] { directory_.remove(); }));
  directory_.write((directory_.path() / "other").string(), "linked");
  EXPECT_TRUE(
      isTold([&] { fs::create_hard_link(directory_.path() / "other", directory_.file()); }));
}

TEST_F(DirectoryWatchTest, IsSilentAboutOtherFiles) {
  const auto watch = this->watch(directory_.path());
  EXPECT_TRUE(isSilent([&] {
    directory_.write(directory_.file() + ".lock", "x");
    directory_.write((directory_.path() / "kavra").string(), "x");
  }));
}

TEST_F(DirectoryWatchTest, WaitsForTheWriterOfAFileThatIsStillEmpty) {
  const auto watch = this->watch(directory_.path());
  std::ofstream out;
  EXPECT_TRUE(isSilent([&] { out.open(directory_.file()); }));
  EXPECT_TRUE(isTold([&] {
    out << "{}";
    out.close();
  }));
}

TEST_F(DirectoryWatchTest, FollowsADirectoryThatGoesAndComesBack) {
  const fs::path directory = directory_.path() / "inner";
  fs::create_directory(directory);
  const auto watch = this->watch(directory);
  EXPECT_TRUE(isTold([&] { fs::remove_all(directory); }));
  EXPECT_TRUE(isTold([&] { fs::create_directory(directory); }));
  EXPECT_TRUE(isTold([&] { directory_.write((directory / "kavra.json").string(), "x"); }));
}

TEST_F(DirectoryWatchTest, FollowsThePathWhenTheDirectoryIsRenamed) {
  const fs::path directory = directory_.path() / "inner";
  fs::create_directory(directory);
  const auto watch = this->watch(directory);
  EXPECT_TRUE(isTold([&] { fs::rename(directory, directory_.path() / "old"); }));
  EXPECT_TRUE(isTold([&] { fs::create_directory(directory); }));
  EXPECT_TRUE(isSilent(
      [&] { directory_.write((directory_.path() / "old" / "kavra.json").string(), "x"); }));
}

TEST_F(DirectoryWatchTest, NeedsItsDirectory) {
  EXPECT_THROW(watch("/no/such/place"), StoreException);
}

TEST_F(DirectoryWatchTest, NeedsRoomInTheLoop) {
  support::ManualEventLoop full;
  full.mostDescriptorsIs(0);
  EXPECT_THROW(Qel::make<DirectoryWatch>(full, directory_.path().string(), "kavra.json", [] {}),
               StoreException);
}

TEST_F(DirectoryWatchTest, MayBeLetGoFromInsideItsCall) {
  Qel::Ptr<DirectoryWatch> watch;
  watch = Qel::make<DirectoryWatch>(loop_, directory_.path().string(), "kavra.json",
                                    [&] { watch = nullptr; });
  directory_.write("x");
  EXPECT_TRUE(kavratest::runUntil(loop_, [&] { return !watch; }));
}

}  // namespace
}  // namespace Kavra::File
