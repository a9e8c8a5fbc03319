#include "Kavra/FileContent.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <system_error>

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

}  // namespace
}  // namespace Kavra
