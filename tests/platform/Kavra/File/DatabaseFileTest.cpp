#include "Kavra/File/DatabaseFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

#include "Kavra/Store.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "platform/Kavra/Documents.h"
#include "support/ProblemOf.h"

namespace Kavra::File {
namespace {

using kavratest::history;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

std::string problemOf(const std::function<void()>& work) {
  return support::problemOf<StoreException>(work);
}

class DatabaseFileTest : public testing::Test {
 protected:
  std::string problemOfReading(const std::string& text) const {
    directory_.write(text);
    return problemOf([this] { DatabaseFile(directory_.file()).read(); });
  }
  mode_t modeOfFile() const {
    struct stat facts {};
    EXPECT_EQ(::stat(directory_.file().c_str(), &facts), 0);
    return facts.st_mode & 07777U;
  }

  const kavratest::DatabaseDirectory directory_;
};

TEST_F(DatabaseFileTest, HoldsNoDocumentsWhileItIsAbsent) {
  EXPECT_FALSE(DatabaseFile(directory_.file()).readContent().has_value());
  EXPECT_TRUE(DatabaseFile(directory_.file()).read().empty());
}

TEST_F(DatabaseFileTest, ReadsBackWhatItWrote) {
  const DatabaseFile file(directory_.file());
  const DatabaseFile::Documents documents{{"a/b", history({"one", "\xff\x01"})},
                                          {"c", Qel::Document(5.0)}};
  file.write(documents);
  EXPECT_EQ(file.read(), documents);
  EXPECT_THAT(directory_.read(), EndsWith("}\n"));
}

TEST_F(DatabaseFileTest, LeavesNothingBesideTheFile) {
  DatabaseFile(directory_.file()).write({{"a", Qel::Document(true)}});
  std::size_t entries = 0;
  for (const auto& entry : std::filesystem::directory_iterator(directory_.path())) {
    EXPECT_EQ(entry.path(), directory_.file());
    ++entries;
  }
  EXPECT_EQ(entries, 1U);
}

TEST_F(DatabaseFileTest, IsReplacedNotRewritten) {
  directory_.write("{}");
  std::filesystem::create_hard_link(directory_.file(), directory_.path() / "old");
  DatabaseFile(directory_.file()).write({{"a", Qel::Document(true)}});
  EXPECT_EQ(std::filesystem::hard_link_count(directory_.path() / "old"), 1U);
}

TEST_F(DatabaseFileTest, KeepsThePermissionsOfTheFileBefore) {
  directory_.write("{}");
  ASSERT_EQ(::chmod(directory_.file().c_str(), 0640), 0);
  DatabaseFile(directory_.file()).write({{"a", Qel::Document(true)}});
  EXPECT_EQ(modeOfFile(), 0640U);
}

TEST_F(DatabaseFileTest, ReplacesWhatAWriterThatDiedLeftBehind) {
  directory_.write((directory_.path() / ".kavra.json.new").string(), "half a fi");
  const DatabaseFile file(directory_.file());
  file.write({{"a", Qel::Document(true)}});
  EXPECT_EQ(file.read().size(), 1U);
}

TEST_F(DatabaseFileTest, IsTheFileThatALinkLeadsTo) {
  directory_.write("{}");
  const auto link = directory_.path() / "link.json";
  std::filesystem::create_symlink("kavra.json", link);
  DatabaseFile(link.string()).write({{"a", Qel::Document(true)}});
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(DatabaseFile(directory_.file()).read().size(), 1U);
}

TEST_F(DatabaseFileTest, NeedsItsDirectory) {
  EXPECT_THAT(problemOf([] { DatabaseFile("/no/such/place/kavra.json"); }),
              AllOf(StartsWith("file:/no/such/place/kavra.json: "), HasSubstr("does not exist")));
}

TEST_F(DatabaseFileTest, IsNotADirectory) {
  EXPECT_THAT(problemOf([this] { DatabaseFile(directory_.path().string()); }),
              EndsWith("is a directory"));
}

TEST_F(DatabaseFileTest, SaysWhereItDoesNotParse) {
  EXPECT_THAT(problemOfReading("{\"a\":\n 5,}"),
              AllOf(StartsWith(directory_.url() + ": "), HasSubstr("line 2, column 4")));
  EXPECT_THAT(problemOfReading(R"({"a": {"time": 1e999}})"), HasSubstr("/a/time: "));
  EXPECT_THAT(problemOfReading(R"({"a": 1, "a": 2})"), HasSubstr("/a: member stands twice"));
  EXPECT_THAT(problemOfReading(""), HasSubstr("is empty"));
  EXPECT_THAT(problemOfReading("[]"), HasSubstr("expected a map of documents but found a list"));
}

TEST_F(DatabaseFileTest, IsNoLargerThan64Mebibytes) {
  directory_.write("{}");
  std::filesystem::resize_file(directory_.file(), DatabaseFile::kMostBytes + 1);
  EXPECT_THAT(problemOf([this] { DatabaseFile(directory_.file()).read(); }),
              HasSubstr("is larger than 67108864 bytes"));
}

TEST_F(DatabaseFileTest, IsNotWrittenLargerThanItCouldBeRead) {
  directory_.write("{}");
  const std::string text(1U << 20U, 'x');
  DatabaseFile::Documents documents;
  for (int i = 0; i < 65; ++i) {
    documents.emplace(std::to_string(i), Qel::Document(Qel::String(text)));
  }
  EXPECT_THAT(problemOf([&] { DatabaseFile(directory_.file()).write(documents); }),
              HasSubstr("would be larger than 67108864 bytes"));
  EXPECT_EQ(directory_.read(), "{}");
}

TEST_F(DatabaseFileTest, IsNotReadFromAPipe) {
  ASSERT_EQ(::mkfifo(directory_.file().c_str(), 0600), 0);
  EXPECT_THAT(problemOf([this] { DatabaseFile(directory_.file()).read(); }),
              EndsWith("is not a regular file"));
}

TEST_F(DatabaseFileTest, KeepsTheOldFileWhenTheNewOneCannotBeWritten) {
  directory_.write("{}");
  // A directory stands where the new file would be written.
  std::filesystem::create_directories(directory_.path() / ".kavra.json.new" / "x");
  EXPECT_THAT(problemOf([this] {
                DatabaseFile(directory_.file()).write({{"a", Qel::Document(true)}});
              }),
              HasSubstr("cannot be written: File exists"));
  EXPECT_EQ(directory_.read(), "{}");
}

TEST_F(DatabaseFileTest, RefusesASecondWriterAfterAWhile) {
  const DatabaseFile file(directory_.file());
  const FileDescriptor first = file.lock();
  EXPECT_THAT(problemOf([&] { static_cast<void>(file.lock()); }),
              EndsWith("is locked by another writer"));
}

TEST_F(DatabaseFileTest, CanBeLockedAgainAfterTheLockWentAway) {
  const DatabaseFile file(directory_.file());
  static_cast<void>(file.lock());
  EXPECT_EQ(problemOf([&] { static_cast<void>(file.lock()); }), "nothing");
}

}  // namespace
}  // namespace Kavra::File
