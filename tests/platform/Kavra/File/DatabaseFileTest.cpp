#include "Kavra/File/DatabaseFile.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "Kavra/Store.h"
#include "Qel/Limits.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "platform/Kavra/Documents.h"
#include "platform/Kavra/File/Allocations.h"
#include "support/ProblemOf.h"

namespace Kavra::File {
namespace {

using kavratest::history;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Key;
using testing::Pair;
using testing::StartsWith;

std::string problemOf(const std::function<void()>& work) {
  return support::problemOf<StoreException>(work);
}

// Those that can be kept.
DatabaseFile::Documents documentsIn(const DatabaseFile& file) {
  const auto content = file.readContent();
  return content ? file.parse(content->text).documents : DatabaseFile::Documents();
}

class DatabaseFileTest : public testing::Test {
 protected:
  std::string problemOfReading(const std::string& text) const {
    directory_.write(text);
    return problemOf([this] { documentsIn(DatabaseFile(directory_.file())); });
  }
  mode_t modeOfFile() const {
    struct stat facts {};
    EXPECT_EQ(::stat(directory_.file().c_str(), &facts), 0);
    return facts.st_mode & 07777U;
  }

  const kavratest::DatabaseDirectory directory_;
};

TEST_F(DatabaseFileTest, HasNoContentWhileItIsAbsent) {
  EXPECT_FALSE(DatabaseFile(directory_.file()).readContent().has_value());
}

TEST_F(DatabaseFileTest, ReadsBackWhatItWrote) {
  const DatabaseFile file(directory_.file());
  const DatabaseFile::Documents documents{{"a/b", history({"one", "\xff\x01"})},
                                          {"c", Qel::Document(5.0)}};
  file.write(documents);
  EXPECT_EQ(documentsIn(file), documents);
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
  EXPECT_EQ(documentsIn(file).size(), 1U);
}

TEST_F(DatabaseFileTest, IsTheFileThatALinkLeadsTo) {
  directory_.write("{}");
  const auto link = directory_.path() / "link.json";
  std::filesystem::create_symlink("kavra.json", link);
  DatabaseFile(link.string()).write({{"a", Qel::Document(true)}});
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(documentsIn(DatabaseFile(directory_.file())).size(), 1U);
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
  EXPECT_THAT(problemOf([this] { documentsIn(DatabaseFile(directory_.file())); }),
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

TEST_F(DatabaseFileTest, KeepsOfADocumentThatIsNoneTheReasonAndItsPlaceInTheText) {
  const std::string text = R"({"a" : [1, {"b":2,"b":3}] ,
    "c":5, "d":  123456789012345678901, "e": {"base64": "?"},"f":"x"})";
  const auto parsed = DatabaseFile(directory_.file()).parse(text);
  EXPECT_THAT(parsed.documents, ElementsAre(Key("c"), Key("f")));
  EXPECT_THAT(parsed.problems(),
              ElementsAre(Pair("a", "/1/b: member stands twice"),
                          Pair("d", "/: integer 123456789012345678901 has more than 64 bits"),
                          Pair("e", "/: not the base64 form of a text")));
  EXPECT_EQ(parsed.unreadable.at("a").text, R"([1, {"b":2,"b":3}])");
  EXPECT_EQ(parsed.unreadable.at("d").text, "123456789012345678901");
  EXPECT_EQ(parsed.unreadable.at("e").text, R"({"base64": "?"})");
  EXPECT_EQ(parsed.unreadable.at("a").values, 5U);
}

TEST_F(DatabaseFileTest, WritesBackWhatItCouldNotKeep) {
  const std::string text = R"({"a": [1, {"b":2,"b":3}], "c":{"x":[]}})";
  const DatabaseFile file(directory_.file());
  const auto parsed = file.parse(text);
  file.write(parsed.documents, parsed.unreadable);
  EXPECT_EQ(directory_.read(),
            "{\n  \"a\": [1, {\"b\":2,\"b\":3}],\n  \"c\": {\n    \"x\": []\n  }\n}\n");
}

// A list in each document, with so many values.
std::string lists(const std::vector<std::size_t>& values) {
  std::string text = "{";
  for (std::size_t i = 0; i < values.size(); ++i) {
    text += fmt::format(R"({}"{}": [0)", i == 0 ? "" : ",", i);
    for (std::size_t value = 2; value < values[i]; ++value) text += ",0";
    text += "]";
  }
  return text + "}";
}

TEST_F(DatabaseFileTest, IsReadNoFurtherThanTheFirstValueThatIsTooMuch) {
  const std::string problem = ": more than 1000000 values in all documents";
  EXPECT_EQ(problemOfReading(lists({300000, 350000, 350000})), "nothing");
  EXPECT_EQ(problemOfReading(lists({300000, 350000, 350001})), directory_.url() + ": /2" + problem);
  EXPECT_EQ(problemOfReading(lists({1000010}) + " nonsense"), directory_.url() + ": /0" + problem);
}

// However much there is: what is not kept takes nothing, nor what is not read any more.
TEST_F(DatabaseFileTest, TakesNoMoreMemoryForMoreThatIsNotKept) {
  const DatabaseFile file(directory_.file());
  const auto allocatedFor = [&](std::size_t values) {
    const std::string text = lists({values});
    const std::size_t before = kavratest::allocatedOctets();
    (void)problemOf([&] { (void)file.parse(text); });
    return kavratest::allocatedOctets() - before;
  };
  const std::size_t kept = allocatedFor(380000);
  EXPECT_GT(kept, 380000 * sizeof(Qel::Document));
  const std::size_t passedOver = allocatedFor(390000);
  EXPECT_EQ(allocatedFor(900000), passedOver);
  EXPECT_LT(passedOver, 2 * kept);
  EXPECT_EQ(allocatedFor(2000000), allocatedFor(4000000));
}

TEST_F(DatabaseFileTest, HoldsNoMoreThan4096Documents) {
  std::string text = R"({"0": 0)";
  for (int i = 1; i < 4096; ++i) text += ",\"" + std::to_string(i) + "\":0";
  EXPECT_EQ(problemOfReading(text + "}"), "nothing");
  EXPECT_EQ(problemOfReading(text + R"(,"x": nonsense})"),
            directory_.url() + ": more than 4096 documents");
}

TEST_F(DatabaseFileTest, IsNotReadFromAPipe) {
  ASSERT_EQ(::mkfifo(directory_.file().c_str(), 0600), 0);
  EXPECT_THAT(problemOf([this] { documentsIn(DatabaseFile(directory_.file())); }),
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
