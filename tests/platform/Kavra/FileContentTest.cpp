#include "Kavra/FileContent.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "platform/Kavra/DatabaseDirectory.h"

namespace Kavra {
namespace {

FileDescriptor fileOf(const std::string& text) {
  FileDescriptor file(::memfd_create("file", MFD_CLOEXEC));
  EXPECT_EQ(::write(file.fd(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
  ::lseek(file.fd(), 0, SEEK_SET);
  return file;
}

TEST(FileContentTest, GivesAllThatAFileHas) {
  const std::string text(200000, 'x');
  EXPECT_EQ(readUpTo(fileOf(text + "end"), 1000000), text + "end");
  EXPECT_EQ(readUpTo(fileOf(""), 5), "");
}

TEST(FileContentTest, GivesAFileOfJustTheMostOctetsAndNoneThatIsLarger) {
  EXPECT_EQ(readUpTo(fileOf("12345"), 5), "12345");
  EXPECT_EQ(readUpTo(fileOf("123456"), 5), std::nullopt);
  EXPECT_EQ(readUpTo(fileOf("1"), 0), std::nullopt);
}

TEST(FileContentTest, DoesNotReadAnEndlessFileToItsEnd) {
  const FileDescriptor endless(::open("/dev/zero", O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(readUpTo(endless, 100000), std::nullopt);
}

TEST(FileContentTest, RaisesWhatTheSystemSays) {
  const FileDescriptor directory(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  try {
    readUpTo(directory, 5);
    FAIL() << "a directory was read";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), EISDIR);
  }
}

class ReplacedFileTest : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return (directory_.path() / name).string(); }
  std::vector<std::string> names() const {
    std::vector<std::string> all;
    for (const auto& one : std::filesystem::directory_iterator(directory_.path())) {
      all.push_back(one.path().filename().string());
    }
    return all;
  }

  const kavratest::DatabaseDirectory directory_;
};

TEST_F(ReplacedFileTest, HasTheNewTextAndNothingBesideIt) {
  for (const Durable durable : {Durable::now, Durable::later}) {
    for (const char* text : {"first and longer", "second"}) {
      EXPECT_TRUE(replaceFile(directory_.file(), text, durable));
      EXPECT_EQ(directory_.read(), text);
    }
  }
  EXPECT_THAT(names(), testing::ElementsAre("kavra.json"));
}

TEST_F(ReplacedFileTest, HasNothingOfWhatAWriterThatDiedLeftBehind) {
  directory_.write(path("kavra.json.new"), "half of a longer text");
  EXPECT_TRUE(replaceFile(directory_.file(), "new"));
  EXPECT_EQ(directory_.read(), "new");
}

TEST_F(ReplacedFileTest, IsAnotherThanWhoeverHasTheOldOneOpenReads) {
  directory_.write("old");
  const FileDescriptor old(::open(directory_.file().c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_TRUE(replaceFile(directory_.file(), "new"));
  EXPECT_EQ(readUpTo(old, 9), "old");
}

TEST_F(ReplacedFileTest, TakesThePlaceOfALinkAndNotOfWhatItLeadsTo) {
  directory_.write(path("other"), "other");
  std::filesystem::create_symlink("other", directory_.file());
  EXPECT_TRUE(replaceFile(directory_.file(), "new"));
  EXPECT_FALSE(std::filesystem::is_symlink(directory_.file()));
  EXPECT_EQ(std::filesystem::file_size(path("other")), 5U);
}

TEST_F(ReplacedFileTest, IsAsItWasWhereALinkWaitsInTheNewOnesPlace) {
  directory_.write("old");
  std::filesystem::create_symlink("other", path("kavra.json.new"));
  EXPECT_FALSE(replaceFile(directory_.file(), "new"));
  EXPECT_EQ(errno, ELOOP);
  EXPECT_EQ(directory_.read(), "old");
  EXPECT_THAT(names(), testing::UnorderedElementsAre("kavra.json", "kavra.json.new"));
}

TEST_F(ReplacedFileTest, IsAsItWasWhereItsPlaceCannotBeTaken) {
  std::filesystem::create_directories(path("kavra.json") + "/x");
  EXPECT_FALSE(replaceFile(directory_.file(), "new"));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_THAT(names(), testing::ElementsAre("kavra.json"));
  EXPECT_FALSE(replaceFile(path("none/file"), "new"));
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(ReplacedFileTest, IsAsItWasWhereTheDiskIsFull) {
  directory_.write("old");
  const FileDescriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  for (const Durable durable : {Durable::now, Durable::later}) {
    directory_.write(path("new"), "");
    EXPECT_FALSE(replaceWith(full, path("new"), "text", directory_.file(), durable));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(directory_.read(), "old");
    EXPECT_THAT(names(), testing::ElementsAre("kavra.json"));
  }
}

}  // namespace
}  // namespace Kavra
