// Who may read, replace and lock a database file, and who may still do so afterwards.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>

#include "Kavra/File/DatabaseFile.h"
#include "Kavra/Store.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "platform/Kavra/File/AnotherUser.h"
#include "support/ProblemOf.h"

namespace Kavra::File {
namespace {

namespace fs = std::filesystem;
using kavratest::AnotherUser;
using testing::EndsWith;
using testing::HasSubstr;

struct Rights {
  uid_t user = 0;
  gid_t group = 0;
  mode_t mode = 0;

  static Rights of(const std::string& path) {
    struct stat facts = {};
    EXPECT_EQ(::stat(path.c_str(), &facts), 0) << path;
    return {facts.st_uid, facts.st_gid, facts.st_mode & 07777U};
  }
  void giveTo(const std::string& path) const {
    EXPECT_EQ(::chown(path.c_str(), user, group), 0) << path;
    EXPECT_EQ(::chmod(path.c_str(), mode), 0) << path;
  }
  friend bool operator==(const Rights& a, const Rights& b) = default;
  friend std::ostream& operator<<(std::ostream& out, const Rights& rights) {
    return out << rights.user << ':' << rights.group << ' ' << std::oct << rights.mode << std::dec;
  }
};

// A service runs as a user of its own, and root now and then does something by hand.
class RightsTest : public testing::Test {
 protected:
  static constexpr uid_t kService = AnotherUser::kId;
  static constexpr gid_t kGroup = AnotherUser::kGroup;
  static constexpr gid_t kOtherGroup = kGroup + 1;

  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can be two users";
    folderBelongsTo({kService, kGroup, 0755});
  }
  void folderBelongsTo(const Rights& rights) const { rights.giveTo(directory_.path().string()); }
  void fileBelongsTo(const Rights& rights) const {
    directory_.write("{}");
    rights.giveTo(directory_.file());
  }
  Rights rightsOfFile() const { return Rights::of(directory_.file()); }
  std::string problemOfWriting() const {
    return support::problemOf<StoreException>([this] {
      DatabaseFile(directory_.file()).write({{"a", Qel::Document(true)}});
    });
  }
  std::string problemOfLocking() const {
    return support::problemOf<StoreException>(
        [this] { static_cast<void>(DatabaseFile(directory_.file()).lock()); });
  }
  std::ptrdiff_t filesInFolder() const {
    return std::distance(fs::directory_iterator(directory_.path()), fs::directory_iterator());
  }

  const kavratest::DatabaseDirectory directory_;
  const std::string lock_ = directory_.file() + ".lock";
};

TEST_F(RightsTest, StayAsTheyWereWhenRootReplacesTheFile) {
  const Rights before{kService, kOtherGroup, 0640};
  fileBelongsTo(before);
  EXPECT_EQ(problemOfWriting(), "nothing");
  EXPECT_EQ(rightsOfFile(), before);
}

TEST_F(RightsTest, StayAsTheyWereWhenTheOwnerReplacesTheFile) {
  const Rights before{kService, kGroup, 0600};
  fileBelongsTo(before);
  const AnotherUser service;
  EXPECT_EQ(problemOfWriting(), "nothing");
  EXPECT_EQ(rightsOfFile(), before);
}

TEST_F(RightsTest, KeepThoseFromReplacingTheFileWhoCouldNotKeepItsOwnerOrGroup) {
  for (const Rights& before : {Rights{0, kGroup, 0666}, Rights{kService, kOtherGroup, 0666}}) {
    fileBelongsTo(before);
    const AnotherUser service;
    EXPECT_THAT(problemOfWriting(), HasSubstr("belongs to user " + std::to_string(before.user) +
                                              " and group " + std::to_string(before.group)));
    EXPECT_EQ(rightsOfFile(), before);
    EXPECT_EQ(directory_.read(), "{}");
    EXPECT_EQ(filesInFolder(), 1);
  }
}

TEST_F(RightsTest, OfANewFileAreThoseOfItsFoldersOwnerWhenRootMakesIt) {
  EXPECT_EQ(problemOfWriting(), "nothing");
  EXPECT_EQ(rightsOfFile(), (Rights{kService, kGroup, 0644}));
  const AnotherUser service;
  EXPECT_EQ(problemOfWriting(), "nothing");
}

TEST_F(RightsTest, LetTheServiceLockWhatRootLockedFirst) {
  EXPECT_EQ(problemOfLocking(), "nothing");
  const AnotherUser service;
  EXPECT_EQ(problemOfLocking(), "nothing");
}

TEST_F(RightsTest, LetTheOwnerOfTheFileLockInAFolderOfRoot) {
  fileBelongsTo({kService, kGroup, 0644});
  folderBelongsTo({0, 0, 01777});
  EXPECT_EQ(problemOfLocking(), "nothing");
  EXPECT_EQ(Rights::of(lock_), (Rights{kService, 0, 0600}));
  const AnotherUser service;
  EXPECT_EQ(problemOfLocking(), "nothing");
}

TEST_F(RightsTest, LetTheGroupLockThatMayWriteToTheFolder) {
  folderBelongsTo({0, kGroup, 0775});
  EXPECT_EQ(problemOfLocking(), "nothing");
  EXPECT_EQ(Rights::of(lock_), (Rights{0, kGroup, 0660}));
  const AnotherUser service;
  EXPECT_EQ(problemOfLocking(), "nothing");
}

TEST_F(RightsTest, OfALockThatTheServiceMadeLetTheFoldersGroupLock) {
  folderBelongsTo({0, kGroup, 0775});
  {
    const AnotherUser service;
    EXPECT_EQ(problemOfLocking(), "nothing");
  }
  EXPECT_EQ(Rights::of(lock_), (Rights{kService, kGroup, 0660}));
}

TEST_F(RightsTest, OfALockThatRootLeftBehindAreSetRightByRoot) {
  directory_.write(lock_, "");
  Rights{0, 0, 0644}.giveTo(lock_);
  EXPECT_EQ(problemOfLocking(), "nothing");
  EXPECT_EQ(Rights::of(lock_), (Rights{kService, kGroup, 0600}));
}

TEST_F(RightsTest, LetNoStrangerHoldTheLock) {
  fileBelongsTo({0, 0, 0644});
  folderBelongsTo({0, 0, 0755});
  EXPECT_EQ(problemOfLocking(), "nothing");
  const AnotherUser stranger;
  // Whoever may open it, if only for reading, may hold it with flock(2).
  EXPECT_EQ(::open(lock_.c_str(), O_RDONLY | O_CLOEXEC), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_THAT(problemOfLocking(), EndsWith("cannot be opened: Permission denied"));
  EXPECT_TRUE(DatabaseFile(directory_.file()).readContent().has_value());
}

TEST_F(RightsTest, LetNoStrangerHoldTheLockWhereEverybodyMayMakeFiles) {
  for (const mode_t others : {02U, 06U, 07U}) {
    SCOPED_TRACE(others);
    fileBelongsTo({0, 0, 0644});
    folderBelongsTo({0, 0, 0750 | others});
    // One that was left open to all is set right.
    for (const mode_t left : {0600U, 0666U}) {
      directory_.write(lock_, "");
      Rights{0, 0, left}.giveTo(lock_);
      EXPECT_EQ(problemOfLocking(), "nothing");
      EXPECT_EQ(Rights::of(lock_), (Rights{0, 0, 0600}));
    }
  }
  const AnotherUser stranger;
  EXPECT_EQ(::open(lock_.c_str(), O_RDONLY | O_CLOEXEC), -1);
  EXPECT_EQ(errno, EACCES);
}

TEST_F(RightsTest, OfWhatIsNoLockAreLeftAlone) {
  const std::string other = (directory_.path() / "other").string();
  directory_.write(other, "");
  const Rights before{0, 0, 0644};
  before.giveTo(other);
  fs::create_hard_link(other, lock_);
  EXPECT_EQ(problemOfLocking(), "nothing");
  EXPECT_EQ(Rights::of(other), before);
  fs::remove(lock_);
  fs::create_symlink(other, lock_);
  EXPECT_THAT(problemOfLocking(), EndsWith("cannot be opened: Too many levels of symbolic links"));
  EXPECT_EQ(Rights::of(other), before);
}

}  // namespace
}  // namespace Kavra::File
