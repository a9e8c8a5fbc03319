#include "Kavra/File/Store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "Kavra/File/DatabaseFile.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "platform/Kavra/Documents.h"
#include "platform/Kavra/File/Allocations.h"
#include "support/LiveObjects.h"
#include "support/ManualClock.h"
#include "support/ProblemOf.h"

namespace Kavra::File {
namespace {

using kavratest::history;
using kavratest::redundancy;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Key;
using testing::SizeIs;

class StoreTest : public support::LiveObjectsTest {
 protected:
  Qel::Ptr<Store> open() const { return Qel::make<Store>(directory_.file(), clock_); }
  void put(const Qel::String& path, const Qel::Document& document) const {
    open()->update({path}, [&](Kavra::Store::Documents& documents) {
      documents.insert_or_assign(path, document);
    });
  }
  std::string problemOfPutting(const Qel::Document& document) const {
    return support::problemOf<StoreException>([&] { put("a", document); });
  }

  const kavratest::DatabaseDirectory directory_;
  const Qel::Ptr<support::ManualClock> clock_ = Qel::make<support::ManualClock>();
};

TEST_F(StoreTest, NeverReplacesAFileThatDoesNotParse) {
  directory_.write("{\"a\": ");
  EXPECT_THAT(problemOfPutting(redundancy(1, true)), HasSubstr("line 1, column 7"));
  EXPECT_EQ(directory_.read(), "{\"a\": ");
  EXPECT_THROW(open()->documents(""), StoreException);
}

TEST_F(StoreTest, TellsWhetherItMadeTheFile) {
  const auto store = open();
  const auto edited = [&](U32 protocol) {
    store->update({"a"}, [&](Kavra::Store::Documents& documents) {
      if (protocol > 0) documents.insert_or_assign("a", redundancy(protocol, true));
    });
    return store->wasCreated();
  };
  EXPECT_FALSE(edited(0));
  EXPECT_TRUE(edited(1));
  EXPECT_FALSE(edited(1));
  EXPECT_FALSE(edited(2));
  directory_.remove();
  EXPECT_TRUE(edited(3));
}

TEST_F(StoreTest, LeavesTheDocumentsOfOthersAsTheyAre) {
  directory_.write(R"({"b": {"type": "Nonsense", "x": [1, 2.5]}, "/c": null})");
  put("a", redundancy(1, true));
  EXPECT_THAT(open()->documents(""), ElementsAre(Key("/c"), Key("a"), Key("b")));
  EXPECT_THAT(directory_.read(), HasSubstr("2.5"));
}

TEST_F(StoreTest, LeavesWhatItCannotReadAsItStood) {
  directory_.write(R"({"b": {"x": 1,   "x": 2}, "c": [123456789012345678901]})");
  put("a", redundancy(1, true));
  EXPECT_THAT(directory_.read(), AllOf(HasSubstr(R"("b": {"x": 1,   "x": 2},)"),
                                       HasSubstr("[123456789012345678901]")));
  const auto store = open();
  EXPECT_EQ(store->documents("b").at("b").member("unreadable")->as<Qel::String>()->stdString(),
            "/x: member stands twice");
  store->update({"b", "c"}, [](Kavra::Store::Documents& documents) {
    documents.erase("b");
    documents["c"] = redundancy(2, true);
  });
  EXPECT_EQ(store->documents(""),
            (Kavra::Store::Documents{{"a", redundancy(1, true)}, {"c", redundancy(2, true)}}));
}

template <class Work>
std::size_t allocatedBy(const Work& work) {
  const std::size_t before = kavratest::allocatedOctets();
  work();
  return kavratest::allocatedOctets() - before;
}

TEST_F(StoreTest, CopiesNoDocumentThatItReadsOrLeavesAlone) {
  constexpr std::size_t kValues = 20000;
  std::string text = R"({"b": [0)";
  for (std::size_t value = 1; value < kValues; ++value) text += ",0";
  text += "]}";
  directory_.write(text);
  constexpr std::size_t kCopy = kValues * sizeof(Qel::Document);
  const DatabaseFile file(directory_.file());
  const std::size_t parsing = allocatedBy([&] { (void)file.parse(text); });
  EXPECT_LT(allocatedBy([&] { (void)open()->documents(""); }), parsing + kCopy);
  const std::size_t replacing = allocatedBy([&] { open()->documentIs("a", redundancy(1, true)); });
  EXPECT_LT(allocatedBy([&] { put("a", redundancy(2, true)); }), replacing + kCopy);
}

TEST_F(StoreTest, TakesNoMoreThanItsReadersDo) {
  const auto list = [](std::size_t values) {
    std::string text = "[0";
    for (std::size_t value = 2; value < values; ++value) text += ",0";
    return text + "]";
  };
  directory_.write(R"({"x": )" + list(330000) + R"(, "y": )" + list(330000) + R"(, "z": )" +
                   list(339995) + "}");
  put("a", redundancy(1, true));
  EXPECT_THAT(open()->documents(""), SizeIs(4));
  const std::string before = directory_.read();
  EXPECT_THAT(support::problemOf<StoreException>([&] { put("b", redundancy(1, true)); }),
              EndsWith("would hold more than 1000000 values"));
  EXPECT_THAT(
      support::problemOf<StoreException>([&] { open()->documentIs("b", redundancy(1, true)); }),
      EndsWith("would hold more than 1000000 values"));
  // Not compared as texts, whose difference would be looked for and printed.
  EXPECT_TRUE(directory_.read() == before);
  EXPECT_TRUE(open()->documentDel("x"));
  put("b", redundancy(1, true));
}

TEST_F(StoreTest, TakesNoMoreDocumentsThanItsReadersDo) {
  std::string text = R"({"0": 0)";
  for (int i = 1; i < 4096; ++i) text += ",\"" + std::to_string(i) + "\":0";
  directory_.write(text + "}");
  EXPECT_THAT(problemOfPutting(redundancy(1, true)),
              EndsWith("would hold more than 4096 documents"));
  EXPECT_EQ(directory_.read(), text + "}");
  put("0", redundancy(1, true));
}

TEST_F(StoreTest, TakesBackWhatStandsInAFileOfTooManyDocuments) {
  std::string text = R"({"0": 0)";
  for (int i = 1; i < 4098; ++i) text += ",\"" + std::to_string(i) + "\":0";
  directory_.write(text + "}");
  EXPECT_FALSE(open()->documentDel("x"));
  EXPECT_TRUE(open()->documentDel("17"));
  EXPECT_THAT(problemOfPutting(redundancy(1, true)),
              EndsWith("would hold more than 4096 documents"));
  EXPECT_THAT(support::problemOf<StoreException>([&] { (void)open()->documents(""); }),
              EndsWith(": more than 4096 documents"));
  EXPECT_TRUE(open()->documentDel("0"));
  EXPECT_THAT(open()->documents(""), SizeIs(4096));
  put("1", redundancy(1, true));
}

TEST_F(StoreTest, DoesNotTouchTheFileWhenNothingChanges) {
  put("a", redundancy(1, true));
  const auto before = std::filesystem::last_write_time(directory_.file());
  const std::string compact = R"({"a": {"type": "Redundancy::RedundancyStatus", "protocol": 1,)"
                              R"( "switchoverCapable": true}})";
  directory_.write(compact);
  std::filesystem::last_write_time(directory_.file(), before);
  put("a", redundancy(1, true));
  open()->documentIs("a", redundancy(1, true));
  EXPECT_EQ(directory_.read(), compact);
}

TEST_F(StoreTest, WritesTheFileThatItsPathLeadsToNow) {
  const auto folder = [this](const char* name) {
    std::filesystem::create_directory(directory_.path() / name);
    return directory_.path() / name;
  };
  const auto link = folder("one").parent_path() / "link";
  std::filesystem::create_directory_symlink("one", link);
  const auto store = Qel::make<Store>((link / "kavra.json").string(), clock_);
  folder("two");
  std::filesystem::remove(link);
  std::filesystem::create_directory_symlink("two", link);
  store->update({"a"}, [](auto& documents) { documents.emplace("a", redundancy(1, true)); });
  EXPECT_FALSE(std::filesystem::exists(directory_.path() / "one" / "kavra.json"));
  EXPECT_TRUE(std::filesystem::exists(directory_.path() / "two" / "kavra.json"));
  EXPECT_EQ(store->documents("").size(), 1U);
}

TEST_F(StoreTest, RefusesASecondWriter) {
  const FileDescriptor lock = DatabaseFile(directory_.file()).lock();
  EXPECT_THAT(problemOfPutting(redundancy(1, true)), EndsWith("is locked by another writer"));
  EXPECT_FALSE(std::filesystem::exists(directory_.file()));
}

TEST_F(StoreTest, ReadsWhileSomebodyElseWrites) {
  put("a", redundancy(1, true));
  const FileDescriptor lock = DatabaseFile(directory_.file()).lock();
  EXPECT_EQ(open()->documents("").size(), 1U);
  EXPECT_TRUE(open()->status().reachable);
}

TEST_F(StoreTest, TellsWhatIsQuarantinedAndHowOldItIs) {
  directory_.write(R"({"b": {"type": "Redundancy::RedundancyStatus", "protocol": 1}})");
  const auto modified = DatabaseFile(directory_.file()).readContent()->modified;
  clock_->nowIs(modified + 90);
  const Status status = open()->status();
  EXPECT_TRUE(status.reachable);
  EXPECT_TRUE(status.problem.empty());
  EXPECT_NEAR(status.age.value_or(-1), 90, 0.001);
  EXPECT_THAT(status.quarantined,
              ElementsAre(Quarantine{"b", "/: member 'switchoverCapable' is missing"}));
}

TEST_F(StoreTest, TellsThatThereIsNoFileYet) {
  EXPECT_TRUE(open()->status().reachable);
  EXPECT_EQ(open()->status().problem, directory_.url() + ": is not there yet");
}

TEST_F(StoreTest, TellsWhatIsWrongWithTheFile) {
  directory_.write("nonsense");
  const Status status = open()->status();
  EXPECT_FALSE(status.reachable);
  EXPECT_THAT(status.problem.stdString(), HasSubstr(directory_.url() + ": parse error"));
}

TEST_F(StoreTest, WritesTenThousandCausesQuickly) {
  std::vector<std::string> causes(10000, "cause");
  const auto start = std::chrono::steady_clock::now();
  put("a", history(causes));
  causes.emplace_back("one more");
  put("a", history(causes));
  EXPECT_EQ(open()->documents("").at("a"), history(causes));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

}  // namespace
}  // namespace Kavra::File
