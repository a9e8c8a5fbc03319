#include "Kavra/File/FileObserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "Kavra/Aside.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "platform/Kavra/File/AnotherUser.h"
#include "platform/Kavra/File/FewWatches.h"

namespace Kavra::File {
namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;
using testing::EndsWith;
using testing::HasSubstr;

std::string textOf(const std::optional<Finding>& finding) {
  if (!finding) return "no news";
  if (!finding->problem.empty()) return finding->problem;
  return finding->content ? finding->content->text : "nothing";
}

class FileObserverTest : public testing::Test {
 protected:
  // So seldom that a test which waits for a look notices.
  static LookOptions seldom() {
    LookOptions options;
    options.lookEvery = options.retryEvery = 20.0;
    return options;
  }
  FileObserver observerOf(const fs::path& path) const { return {path.string(), seldom()}; }
  // Whether it waits no longer once that has happened.
  bool isWokenBy(FileObserver& observer, const std::function<void()>& change) const {
    change();
    const auto begin = steady_clock::now();
    observer.wait(wake_.fd());
    return steady_clock::now() - begin < std::chrono::seconds(10);
  }
  // A folder of that name with a file in it.
  fs::path folder(const std::string& name, const std::string& text) const {
    const fs::path path = directory_.path() / name;
    fs::create_directories(path);
    directory_.write((path / "kavra.json").string(), text);
    return path;
  }

  const kavratest::DatabaseDirectory directory_;
  kavratest::FewWatches watches_;
  const FileDescriptor wake_ = newEvent();
};

TEST_F(FileObserverTest, TellsOnceWhatThereIs) {
  FileObserver observer = observerOf(directory_.file());
  EXPECT_EQ(textOf(observer.look()), "nothing");
  EXPECT_EQ(textOf(observer.look()), "no news");
  directory_.write("one");
  EXPECT_EQ(textOf(observer.look()), "one");
  EXPECT_EQ(textOf(observer.look()), "no news");
  directory_.remove();
  EXPECT_EQ(textOf(observer.look()), "nothing");
}

TEST_F(FileObserverTest, FindsALinkThatIsPointedElsewhere) {
  const fs::path link = directory_.path() / "link";
  fs::create_directory_symlink(folder("a", "one"), link);
  FileObserver observer = observerOf(link / "kavra.json");
  EXPECT_EQ(textOf(observer.look()), "one");
  const fs::path other = folder("b", "two");
  fs::remove(link);
  fs::create_directory_symlink(other, link);
  EXPECT_EQ(textOf(observer.look()), "two");
  EXPECT_TRUE(isWokenBy(observer, [&] { folder("b", "three"); }));
  EXPECT_EQ(textOf(observer.look()), "three");
}

TEST_F(FileObserverTest, FindsAnotherFileBehindALinkOfTheFilesName) {
  fs::create_symlink(folder("a", "one") / "kavra.json", directory_.file());
  FileObserver observer = observerOf(directory_.file());
  EXPECT_EQ(textOf(observer.look()), "one");
  const fs::path other = folder("b", "two");
  directory_.remove();
  fs::create_symlink(other / "kavra.json", directory_.file());
  EXPECT_EQ(textOf(observer.look()), "two");
  EXPECT_TRUE(isWokenBy(observer, [&] { folder("b", "three"); }));
}

TEST_F(FileObserverTest, FindsAnotherFolderAboveTheOneOfTheFile) {
  folder("above/inner", "one");
  FileObserver observer = observerOf(directory_.path() / "above/inner/kavra.json");
  EXPECT_EQ(textOf(observer.look()), "one");
  fs::rename(directory_.path() / "above", directory_.path() / "away");
  folder("above/inner", "two");
  EXPECT_EQ(textOf(observer.look()), "two");
  EXPECT_TRUE(isWokenBy(observer, [&] { folder("above/inner", "three"); }));
}

TEST_F(FileObserverTest, WatchesAnotherFolderThatHasTheSameFile) {
  const fs::path folderOfFile = folder("inner", "one");
  FileObserver observer = observerOf(folderOfFile / "kavra.json");
  EXPECT_EQ(textOf(observer.look()), "one");
  fs::rename(folderOfFile, directory_.path() / "away");
  fs::create_directory(folderOfFile);
  fs::rename(directory_.path() / "away" / "kavra.json", folderOfFile / "kavra.json");
  EXPECT_EQ(textOf(observer.look()), "no news");
  EXPECT_TRUE(isWokenBy(observer, [&] { folder("inner", "two"); }));
}

TEST_F(FileObserverTest, TellsThatTheFolderIsGoneAndIsBack) {
  const fs::path folderOfFile = folder("inner", "one");
  FileObserver observer = observerOf(folderOfFile / "kavra.json");
  EXPECT_EQ(textOf(observer.look()), "one");
  EXPECT_TRUE(isWokenBy(observer, [&] { fs::remove_all(folderOfFile); }));
  EXPECT_THAT(textOf(observer.look()), EndsWith("inner does not exist"));
  folder("inner", "two");
  EXPECT_EQ(textOf(observer.look()), "two");
  EXPECT_TRUE(isWokenBy(observer, [&] { folder("inner", "three"); }));
}

TEST_F(FileObserverTest, WatchesAnewAFolderThatLooksLikeTheOneThatWent) {
  LookOptions options = seldom();
  // As where the new one has the number of the old.
  options.facts = [](const std::string&) { return FileFacts(); };
  const fs::path folderOfFile = folder("inner", "one");
  FileObserver observer((folderOfFile / "kavra.json").string(), options);
  EXPECT_EQ(textOf(observer.look()), "one");
  fs::remove_all(folderOfFile);
  EXPECT_TRUE(isWokenBy(observer, [&] { folder("inner", "two"); }));
  EXPECT_EQ(textOf(observer.look()), "two");
  EXPECT_TRUE(isWokenBy(observer, [&] { folder("inner", "three"); }));
}

// Runs `work` on a thread with mounts of its own, which go with it. False where that is not
// allowed.
bool withOwnMounts(const std::function<void()>& work) {
  bool allowed = false;
  std::thread([&] {
    allowed = ::unshare(CLONE_NEWNS) == 0 &&
              ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    if (allowed) work();
  }).join();
  return allowed;
}

TEST_F(FileObserverTest, FindsWhatIsMountedOverTheFolder) {
  const fs::path below = folder("below", "one");
  const fs::path above = folder("above", "two");
  const bool allowed = withOwnMounts([&] {
    FileObserver observer = observerOf(below / "kavra.json");
    EXPECT_EQ(textOf(observer.look()), "one");
    ASSERT_EQ(::mount(above.c_str(), below.c_str(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(textOf(observer.look()), "two");
    EXPECT_TRUE(isWokenBy(observer, [&] { folder("above", "three"); }));
    EXPECT_EQ(textOf(observer.look()), "three");
    ASSERT_EQ(::umount2(below.c_str(), MNT_DETACH), 0);
    EXPECT_EQ(textOf(observer.look()), "one");
  });
  if (!allowed) GTEST_SKIP() << "no mounts of its own are allowed here";
}

TEST_F(FileObserverTest, FindsWhatIsMountedOverTheFile) {
  directory_.write("one");
  const fs::path above = folder("above", "two") / "kavra.json";
  const bool allowed = withOwnMounts([&] {
    FileObserver observer = observerOf(directory_.file());
    EXPECT_EQ(textOf(observer.look()), "one");
    ASSERT_EQ(::mount(above.c_str(), directory_.file().c_str(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(textOf(observer.look()), "two");
    folder("above", "three");
    EXPECT_EQ(textOf(observer.look()), "three");
  });
  if (!allowed) GTEST_SKIP() << "no mounts of its own are allowed here";
}

TEST_F(FileObserverTest, LooksOnceMoreAtWhatMayHaveChangedTwiceAtOnce) {
  LookOptions options = seldom();
  // Of a file system whose times have a coarse resolution.
  options.facts = [](const std::string&) { return FileFacts(); };
  directory_.write("one");
  FileObserver observer(directory_.file(), options);
  EXPECT_EQ(textOf(observer.look()), "one");
  directory_.write("two");
  EXPECT_EQ(textOf(observer.look()), "two");
}

TEST_F(FileObserverTest, AsksForTwoFactsAndReadsNothingWithoutNews) {
  LookOptions options = seldom();
  int questions = 0;
  options.facts = [&](const std::string& path) {
    ++questions;
    return factsOf(path);
  };
  directory_.write("one");
  FileObserver observer(directory_.file(), options);
  EXPECT_NE(textOf(observer.look()), "");
  EXPECT_NE(textOf(observer.look()), "");
  questions = 0;
  // Would be told of as a problem.
  const auto before = factsOf(directory_.file());
  EXPECT_EQ(textOf(observer.look()), "no news");
  EXPECT_EQ(questions, 2);
  EXPECT_EQ(factsOf(directory_.file()), before);
}

TEST_F(FileObserverTest, ReadsAgainUntilItMayReadTheFile) {
  directory_.write("one");
  kavratest::letAnotherUserIn(directory_);
  const kavratest::AnotherUser user;
  ASSERT_EQ(user.chmod(directory_.file(), 0), 0);
  LookOptions options;
  options.lookEvery = 20.0;
  options.retryEvery = 0.001;
  FileObserver observer(directory_.file(), options);
  EXPECT_THAT(textOf(observer.look()), HasSubstr("cannot be opened: Permission denied"));
  EXPECT_TRUE(isWokenBy(observer, [] {}));
  EXPECT_EQ(textOf(observer.look()), "no news");
  ASSERT_EQ(user.chmod(directory_.file(), 0644), 0);
  EXPECT_TRUE(isWokenBy(observer, [] {}));
  EXPECT_EQ(textOf(observer.look()), "one");
}

TEST_F(FileObserverTest, FindsChangesByLookingWhereNoWatchIsLeft) {
  LookOptions options = seldom();
  options.watch = watches_.call();
  options.retryEvery = 0.001;
  directory_.write("one");
  FileObserver observer(directory_.file(), options);
  const auto first = observer.look();
  ASSERT_EQ(textOf(first), "one");
  EXPECT_EQ(first->unwatched, "");
  EXPECT_EQ(first->noWatchLeft, kavratest::FewWatches::kProblem);
  EXPECT_TRUE(isWokenBy(observer, [this] { directory_.replace("two"); }));
  EXPECT_EQ(textOf(observer.look()), "two");
}

TEST_F(FileObserverTest, ReadsNothingWithoutNewsWhereNoWatchIsLeft) {
  LookOptions options = seldom();
  options.watch = watches_.call();
  options.facts = [](const std::string&) { return FileFacts(); };
  directory_.write("one");
  FileObserver observer(directory_.file(), options);
  EXPECT_EQ(textOf(observer.look()), "one");
  EXPECT_EQ(textOf(observer.look()), "no news");
  directory_.write("two");  // and no fact tells of it
  EXPECT_EQ(textOf(observer.look()), "no news");
}

TEST_F(FileObserverTest, IsToldOfChangesAsSoonAsAWatchIsLeft) {
  LookOptions options = seldom();
  options.watch = watches_.call();
  directory_.write("one");
  FileObserver observer(directory_.file(), options);
  EXPECT_NE(textOf(observer.look()), "no news");
  EXPECT_EQ(textOf(observer.look()), "no news");
  watches_.oneIsLeft();
  const auto found = observer.look();
  ASSERT_EQ(textOf(found), "one");
  EXPECT_EQ(found->noWatchLeft, "");
  EXPECT_EQ(textOf(observer.look()), "no news");
  EXPECT_TRUE(isWokenBy(observer, [this] { directory_.replace("two"); }));
}

TEST_F(FileObserverTest, TellsWhatItFindsWhenItHasForgottenWhatItTold) {
  directory_.write("one");
  FileObserver observer = observerOf(directory_.file());
  EXPECT_EQ(textOf(observer.look()), "one");
  observer.forget();
  EXPECT_EQ(textOf(observer.look()), "one");
}

TEST_F(FileObserverTest, IsWokenByWhoeverNeedsIt) {
  FileObserver observer = observerOf(directory_.file());
  EXPECT_NE(textOf(observer.look()), "");
  EXPECT_TRUE(isWokenBy(observer, [this] { ::eventfd_write(wake_.fd(), 1); }));
}

TEST(LookOptionsTest, FindAChangeThatNothingTellsOfWithinFiveSeconds) {
  EXPECT_LE(LookOptions().lookEvery, 4.5);
  EXPECT_LE(LookOptions().retryEvery, 1.0);
}

}  // namespace
}  // namespace Kavra::File
