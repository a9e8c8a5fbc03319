#include "Kavra/File/DirectoryWatch.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "Kavra/Store.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "support/NoMoreDescriptors.h"
#include "support/ProblemOf.h"

namespace Kavra::File {
namespace {

namespace fs = std::filesystem;

class DirectoryWatchTest : public testing::Test {
 protected:
  static DirectoryWatch watch(const fs::path& directory) {
    return DirectoryWatch(directory.string(), "kavra.json");
  }
  // Whether the change was told of; the kernel does so before it is over.
  static bool isTold(DirectoryWatch& watch, const std::function<void()>& change) {
    EXPECT_FALSE(watch.takeEvents().concernFile);
    change();
    return watch.takeEvents().concernFile;
  }
  static bool isLost(DirectoryWatch& watch, const std::function<void()>& change) {
    change();
    return watch.takeEvents().loseDirectory;
  }

  const kavratest::DatabaseDirectory directory_;
};

TEST_F(DirectoryWatchTest, TellsOfEachWayInWhichAFileChanges) {
  auto watch = this->watch(directory_.path());
  EXPECT_TRUE(isTold(watch, [&] { directory_.write("created"); }));
  EXPECT_TRUE(isTold(watch, [&] { directory_.write("rewritten"); }));
  EXPECT_TRUE(isTold(watch, [&] { directory_.replace("replaced"); }));
  EXPECT_TRUE(isTold(watch, [&] { fs::rename(directory_.file(), directory_.path() / "away"); }));
  EXPECT_TRUE(isTold(watch, [&] { fs::rename(directory_.path() / "away", directory_.file()); }));
  EXPECT_TRUE(isTold(watch, [&] { directory_.remove(); }));
  directory_.write((directory_.path() / "other").string(), "linked");
  EXPECT_TRUE(
      isTold(watch, [&] { fs::create_hard_link(directory_.path() / "other", directory_.file()); }));
}

TEST_F(DirectoryWatchTest, IsSilentAboutOtherFiles) {
  auto watch = this->watch(directory_.path());
  EXPECT_FALSE(isTold(watch, [&] {
    directory_.write(directory_.file() + ".lock", "x");
    directory_.write((directory_.path() / "kavra").string(), "x");
  }));
}

TEST_F(DirectoryWatchTest, WaitsForTheWriterOfAFileThatIsStillEmpty) {
  auto watch = this->watch(directory_.path());
  std::ofstream out;
  EXPECT_FALSE(isTold(watch, [&] { out.open(directory_.file()); }));
  EXPECT_TRUE(isTold(watch, [&] {
    out << "{}";
    out.close();
  }));
}

TEST_F(DirectoryWatchTest, IsLostWithItsDirectory) {
  const fs::path directory = directory_.path() / "inner";
  fs::create_directory(directory);
  auto removed = watch(directory);
  EXPECT_FALSE(
      isLost(removed, [&] { directory_.write((directory / "kavra.json").string(), "x"); }));
  EXPECT_TRUE(isLost(removed, [&] { fs::remove_all(directory); }));
  fs::create_directory(directory);
  auto renamed = watch(directory);
  EXPECT_TRUE(isLost(renamed, [&] { fs::rename(directory, directory_.path() / "old"); }));
}

TEST_F(DirectoryWatchTest, NeedsItsDirectory) {
  EXPECT_EQ(support::problemOf<StoreException>([] { watch("/no/such/place"); }),
            "directory /no/such/place cannot be followed: No such file or directory");
}

TEST_F(DirectoryWatchTest, TellsWhereTheKernelHasNoneLeft) {
  const fs::path directory = directory_.path();
  bool isToldSo = false;
  {
    // Nothing else happens meanwhile: the sanitizers want descriptors for their checks.
    const support::NoMoreDescriptors none;
    try {
      watch(directory);
    } catch (const NoWatchLeft&) {
      isToldSo = true;
    }
  }
  EXPECT_TRUE(isToldSo);
}

}  // namespace
}  // namespace Kavra::File
