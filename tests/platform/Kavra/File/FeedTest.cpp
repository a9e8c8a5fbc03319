#include "Kavra/File/Feed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "Kavra/File/DatabaseFile.h"
#include "Kavra/FileDescriptor.h"
#include "Kavra/Json/Text.h"
#include "Kavra/Mirror.h"
#include "Kavra/Store.h"
#include "Qel/Limits.h"
#include "Qel/PollEventLoop.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "platform/Kavra/Documents.h"
#include "platform/Kavra/File/FewWatches.h"
#include "platform/Kavra/File/HeldUpFiles.h"
#include "platform/Kavra/HastyEventLoop.h"
#include "platform/Kavra/RunUntil.h"
#include "support/LiveObjects.h"
#include "support/NoMoreDescriptors.h"
#include "support/TraceRecorder.h"

namespace Kavra::File {
namespace {

using kavratest::history;
using kavratest::kHistoryPath;
using kavratest::Reloads;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

std::string json(const Qel::Document& history) {
  return Json::write(Qel::Document::Map{{kHistoryPath, history}}, Json::Form::pretty);
}

class FeedTest : public support::LiveObjectsTest {
 protected:
  void open() { open(loop_, {}); }
  void open(Qel::EventLoop& loop, const LookOptions& options) {
    feed_ = Qel::make<Feed>(directory_.file(), loop, clock_, options);
    mirror_ = Qel::make<Mirror>(feed_, kHistoryPath, kavratest::kHistoryType);
  }
  // The clock is the computer's own, as times of files are.
  bool shows(const Reloads& reloads) {
    return kavratest::runUntil(loop_,
                               [&] { return kavratest::reloadsOf(mirror_->entity()) == reloads; });
  }
  bool traced(std::size_t lines) {
    return kavratest::runUntil(loop_, [&] { return log_.lines().size() >= lines; });
  }

  support::TraceRecorder log_;
  const kavratest::DatabaseDirectory directory_;
  kavratest::HeldUpFiles files_;
  Qel::PollEventLoop loop_;
  const Qel::Ptr<Qel::Clock const> clock_ = Qel::make<Qel::SystemClock>();
  Qel::Ptr<Feed> feed_;
  Qel::Ptr<Mirror> mirror_;
};

TEST_F(FeedTest, ServesWhatStandsInTheFile) {
  directory_.write(json(history({"one"})));
  open();
  EXPECT_TRUE(shows({{0, {"one"}}}));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FeedTest, WaitsQuietlyForAFileThatIsAbsent) {
  open();
  EXPECT_FALSE(feed_->status().isFresh());
  EXPECT_TRUE(feed_->status().complete);
  EXPECT_EQ(feed_->status().problem, directory_.url() + ": is not there yet");
  EXPECT_EQ(feed_->status().age, std::nullopt);
  directory_.write(json(history({"one"})));
  EXPECT_TRUE(shows({{0, {"one"}}}));
  EXPECT_TRUE(feed_->status().isFresh());
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FeedTest, FollowsAFileThatIsReplacedOrRewritten) {
  directory_.write(json(history({"one"})));
  open();
  directory_.replace(json(history({"two"})));
  EXPECT_TRUE(shows({{0, {"two"}}}));
  directory_.write(json(history({"three"})));
  EXPECT_TRUE(shows({{0, {"three"}}}));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FeedTest, ServesTheLastGoodStateWhileTheFileIsGone) {
  directory_.write(json(history({"one"})));
  open();
  EXPECT_TRUE(shows({{0, {"one"}}}));
  directory_.remove();
  EXPECT_TRUE(traced(1));
  EXPECT_THAT(log_.takeLines(),
              ElementsAre(StartsWith("Kavra 0: " + directory_.url() +
                                     ": is gone; still serving what was published ")));
  EXPECT_FALSE(feed_->status().reachable);
  EXPECT_THAT(feed_->status().problem.stdString(), HasSubstr("is gone"));
  const auto late = Qel::make<Mirror>(feed_, kHistoryPath, kavratest::kHistoryType);
  loop_.runOnce(0.0);
  EXPECT_EQ(kavratest::reloadsOf(late->entity()), (Reloads{{0, {"one"}}}));
  directory_.write(json(history({"two"})));
  EXPECT_TRUE(shows({{0, {"two"}}}));
  EXPECT_THAT(log_.takeLines(), ElementsAre("Kavra 0: " + directory_.url() + ": is good again"));
  EXPECT_TRUE(feed_->status().reachable);
}

TEST_F(FeedTest, IsIncompleteUntilAFileCouldBeRead) {
  directory_.write("{");
  open();
  EXPECT_TRUE(feed_->status().followed);
  EXPECT_FALSE(feed_->status().complete);
  directory_.write(json(history({"one"})));
  EXPECT_TRUE(shows({{0, {"one"}}}));
  EXPECT_TRUE(feed_->status().complete);
  directory_.write("{");
  EXPECT_TRUE(kavratest::runUntil(loop_, [&] { return !feed_->status().reachable; }));
  EXPECT_TRUE(feed_->status().complete);
}

TEST_F(FeedTest, FollowsADirectoryThatGoesAndComesBack) {
  const auto inner = directory_.path() / "inner";
  std::filesystem::create_directory(inner);
  const std::string file = (inner / "kavra.json").string();
  directory_.write(file, json(history({"one"})));
  feed_ = Qel::make<Feed>(file, loop_, clock_);
  mirror_ = Qel::make<Mirror>(feed_, kHistoryPath, kavratest::kHistoryType);
  EXPECT_TRUE(shows({{0, {"one"}}}));
  std::filesystem::remove_all(inner);
  EXPECT_TRUE(traced(1));
  std::filesystem::create_directory(inner);
  directory_.write(file, json(history({"two"})));
  EXPECT_TRUE(shows({{0, {"two"}}}));
}

TEST_F(FeedTest, ChangesNothingForATornFileAndSaysWhereOnce) {
  directory_.write(json(history({"one"})));
  open();
  EXPECT_TRUE(shows({{0, {"one"}}}));
  const std::string whole = json(history({"two"}));
  directory_.write(whole.substr(0, whole.size() / 2));
  EXPECT_TRUE(traced(1));
  EXPECT_THAT(log_.takeLines(), ElementsAre(AllOf(StartsWith("Kavra 0: " + directory_.url() + ": "),
                                                  HasSubstr(" at line "), HasSubstr("column"),
                                                  HasSubstr("still serving what was published"))));
  // Each as a whole: who reads at any moment must find the one or the other.
  directory_.replace(whole.substr(0, whole.size() / 2));
  directory_.replace(whole.substr(0, whole.size() / 2));
  // What follows is told of after what came before it.
  directory_.replace(whole);
  EXPECT_TRUE(shows({{0, {"two"}}}));
  EXPECT_THAT(log_.takeLines(), ElementsAre("Kavra 0: " + directory_.url() + ": is good again"));
}

TEST_F(FeedTest, ChangesNothingForAnEmptyFile) {
  directory_.write(json(history({"one"})));
  open();
  EXPECT_TRUE(shows({{0, {"one"}}}));
  directory_.write("");
  EXPECT_TRUE(traced(1));
  EXPECT_THAT(log_.takeLines(), ElementsAre(HasSubstr(directory_.url() + ": is empty")));
  EXPECT_EQ(kavratest::reloadsOf(mirror_->entity()), (Reloads{{0, {"one"}}}));
}

TEST_F(FeedTest, SaysWhatIsWrongWithAFileThatWasNeverGood) {
  directory_.write("[1]");
  open();
  EXPECT_THAT(log_.takeLines(), ElementsAre("Kavra 0: " + directory_.url() +
                                            ": expected a map of documents but found a list"));
  directory_.write(json(history({"one"})));
  EXPECT_TRUE(shows({{0, {"one"}}}));
}

TEST_F(FeedTest, ChangesNothingForAFileThatIsSomethingElse) {
  directory_.write(json(history({"one"})));
  open();
  EXPECT_TRUE(shows({{0, {"one"}}}));
  std::filesystem::create_directory(directory_.path() / "other");
  directory_.remove();
  std::filesystem::rename(directory_.path() / "other", directory_.file());
  EXPECT_TRUE(kavratest::runUntil(
      loop_, [&] { return feed_->status().problem.stdString().ends_with("is a directory"); }));
  EXPECT_EQ(kavratest::reloadsOf(mirror_->entity()), (Reloads{{0, {"one"}}}));
}

TEST_F(FeedTest, LeavesOneMisfittingDocumentBehindAndAppliesTheOthers) {
  open();
  directory_.write(Json::write(
      Qel::Document::Map{{kHistoryPath, history({"one"})}, {"a", kavratest::misfitHistory()}},
      Json::Form::line));
  EXPECT_TRUE(shows({{0, {"one"}}}));
  EXPECT_THAT(log_.lines(),
              ElementsAre(std::string("Kavra 0: a: refused: ") + kavratest::kMisfitProblem));
  EXPECT_THAT(feed_->status().quarantined, ElementsAre(Quarantine{"a", kavratest::kMisfitProblem}));
}

TEST_F(FeedTest, TellsWhenAMisfittingDocumentWasMended) {
  directory_.write(json(kavratest::misfitHistory()));
  open();
  log_.clear();
  directory_.write(json(history({"one"})));
  EXPECT_TRUE(shows({{0, {"one"}}}));
  EXPECT_THAT(log_.lines(),
              ElementsAre(std::string("Kavra 0: ") + kHistoryPath + ": no longer refused"));
}

TEST_F(FeedTest, LeavesADocumentThatIsTooLargeBehindAndAppliesTheOthers) {
  std::string large = R"({"large": [{"deep": [1)";
  for (std::size_t i = 0; i < Qel::Limits::kMostDocumentValues; ++i) large += ",1";
  directory_.write(large +
                   R"(]}, "x"], "b": {"type": {"base64": "x"}}, "c": [12345678901234567890)" +
                   R"(0], )" + json(history({"one"})).substr(1));
  open();
  EXPECT_TRUE(shows({{0, {"one"}}}));
  EXPECT_THAT(log_.lines(),
              ElementsAre("Kavra 0: b: refused: /type: not the base64 form of a text",
                          "Kavra 0: c: refused: /0: integer 123456789012345678900 has more than 64 "
                          "bits",
                          "Kavra 0: large: refused: /0/deep/380000: the document has more than "
                          "380000 values"));
  EXPECT_EQ(feed_->status().quarantined.size(), 3U);
}

TEST_F(FeedTest, KeepsDocumentsThatAreNoLongerInTheFileAsLastSeen) {
  directory_.write(json(history({"one"})));
  open();
  EXPECT_TRUE(shows({{0, {"one"}}}));
  directory_.write(R"({"a": {"type": 5}})");
  EXPECT_TRUE(traced(1));
  EXPECT_EQ(kavratest::reloadsOf(mirror_->entity()), (Reloads{{0, {"one"}}}));
}

TEST_F(FeedTest, KnowsHowOldIsWhatItServes) {
  directory_.write(json(history({"one"})));
  std::filesystem::last_write_time(
      directory_.file(), std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
  open();
  ASSERT_TRUE(feed_->status().age);
  EXPECT_NEAR(*feed_->status().age, 3600, 60);
}

TEST_F(FeedTest, FollowsALinkThatIsPointedElsewhere) {
  for (const char* name : {"one", "two"}) {
    const auto folder = directory_.path() / name;
    std::filesystem::create_directory(folder);
    directory_.write((folder / "kavra.json").string(), json(history({name})));
  }
  const auto link = directory_.path() / "link";
  std::filesystem::create_directory_symlink("one", link);
  feed_ = Qel::make<Feed>((link / "kavra.json").string(), loop_, clock_, files_.options());
  mirror_ = Qel::make<Mirror>(feed_, kHistoryPath, kavratest::kHistoryType);
  EXPECT_TRUE(shows({{0, {"one"}}}));
  std::filesystem::remove(link);
  std::filesystem::create_directory_symlink("two", link);
  EXPECT_TRUE(shows({{0, {"two"}}}));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(FeedTest, TriesAgainUntilThereAreDescriptorsAndTellsTheBeginningAndTheEnd) {
  directory_.write(json(history({"one"})));
  open(loop_, files_.options());
  EXPECT_TRUE(shows({{0, {"one"}}}));
  {
    const support::NoMoreDescriptors none;
    std::filesystem::last_write_time(directory_.file(),
                                     std::filesystem::file_time_type::clock::now());
    EXPECT_TRUE(traced(1));
    const int before = files_.questions();
    EXPECT_TRUE(kavratest::runUntil(loop_, [&] { return files_.questions() > before + 10; }));
    EXPECT_EQ(log_.lines().size(), 1U);
  }
  EXPECT_TRUE(traced(2));
  EXPECT_THAT(log_.takeLines(),
              ElementsAre(AllOf(HasSubstr(directory_.url() + ": cannot be opened: Too many open"),
                                HasSubstr("; still serving what was published")),
                          "Kavra 0: " + directory_.url() + ": is good again"));
}

TEST_F(FeedTest, GoesOnWhereNoWatchIsLeftAndTellsTheBeginningAndTheEnd) {
  kavratest::FewWatches watches;
  LookOptions options = files_.options();
  options.watch = watches.call();
  directory_.write(json(history({"one"})));
  open(loop_, options);
  EXPECT_TRUE(shows({{0, {"one"}}}));
  EXPECT_TRUE(feed_->status().isFresh());
  directory_.replace(json(history({"two"})));
  EXPECT_TRUE(shows({{0, {"two"}}}));
  EXPECT_THAT(log_.takeLines(),
              ElementsAre("Kavra 0: " + directory_.url() + ": " + kavratest::FewWatches::kProblem +
                          "; looking each second"));
  watches.oneIsLeft();
  EXPECT_TRUE(traced(1));
  EXPECT_THAT(log_.takeLines(), ElementsAre("Kavra 0: " + directory_.url() + ": is watched again"));
}

TEST_F(FeedTest, TellsTheFirstReasonWhyAFileCannotBeReadAndKeepsTheLast) {
  directory_.write(json(history({"one"})));
  open(loop_, files_.options());
  EXPECT_TRUE(shows({{0, {"one"}}}));
  const auto other = directory_.path() / "other";
  const auto problemIs = [&](const char* problem) {
    std::filesystem::rename(other, directory_.file());
    return kavratest::runUntil(
        loop_, [&] { return feed_->status().problem.stdString().ends_with(problem); });
  };
  std::filesystem::create_symlink("kavra.json", other);
  EXPECT_TRUE(problemIs("Too many levels of symbolic links"));
  ASSERT_EQ(::mkfifo(other.c_str(), 0600), 0);
  EXPECT_TRUE(problemIs("is not a regular file"));
  directory_.replace(json(history({"two"})));
  EXPECT_TRUE(shows({{0, {"two"}}}));
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr("Too many levels of symbolic links; still"),
                                        "Kavra 0: " + directory_.url() + ": is good again"));
}

TEST_F(FeedTest, GoesOnWhileTheFileSystemDoesNotAnswerAndSaysSo) {
  kavratest::HastyEventLoop hasty(loop_, 100.0);
  directory_.write(json(history({"one"})));
  open(hasty, files_.options());
  EXPECT_TRUE(shows({{0, {"one"}}}));
  files_.isHeldUpIs(true);
  EXPECT_TRUE(traced(1));
  EXPECT_THAT(log_.takeLines(),
              ElementsAre(AllOf(StartsWith("Kavra 0: " + directory_.url() +
                                           ": the file system has not answered for 5 s; still"))));
  EXPECT_FALSE(feed_->status().reachable);
  files_.isHeldUpIs(false);
  EXPECT_TRUE(traced(1));
  EXPECT_THAT(log_.takeLines(), ElementsAre("Kavra 0: " + directory_.url() + ": is good again"));
  EXPECT_TRUE(feed_->status().reachable);
  EXPECT_EQ(files_.waited(), 1);
  feed_ = nullptr;
  mirror_ = nullptr;
}

TEST_F(FeedTest, BeginsWithoutAFileSystemThatDoesNotAnswer) {
  directory_.write(json(history({"one"})));
  files_.isHeldUpIs(true);
  open(loop_, files_.options());
  EXPECT_THAT(log_.takeLines(), ElementsAre("Kavra 0: " + directory_.url() +
                                            ": the file system has not answered for 2 s"));
  files_.isHeldUpIs(false);
  EXPECT_TRUE(shows({{0, {"one"}}}));
  EXPECT_THAT(log_.takeLines(), ElementsAre("Kavra 0: " + directory_.url() + ": is good again"));
}

TEST_F(FeedTest, NeedsADirectoryAtTheStart) {
  EXPECT_THROW(Qel::make<Feed>("/no/such/place/kavra.json", loop_, clock_), StoreException);
}

TEST_F(FeedTest, MayBeLetGoFromInsideAChange) {
  feed_ = Qel::make<Feed>(directory_.file(), loop_, clock_);
  Qel::Ptr<Follow> follow;
  follow = feed_->followIs(kHistoryPath, [&](const Qel::String&, const CheckedDocument*) {
    follow = nullptr;
    feed_ = nullptr;
    return Qel::String();
  });
  loop_.runOnce(0.0);
  directory_.write(json(history({"one"})));
  EXPECT_TRUE(kavratest::runUntil(loop_, [&] { return !feed_; }));
}

TEST_F(FeedTest, TakesTenThousandCausesInOneReload) {
  std::vector<std::string> causes;
  causes.reserve(10001);
  for (int i = 0; i < 10000; ++i) causes.push_back("cause " + std::to_string(i));
  open();
  const auto start = std::chrono::steady_clock::now();
  directory_.replace(json(history(causes)));
  EXPECT_TRUE(shows({{0, causes}}));
  causes.emplace_back("one more");
  directory_.replace(json(history(causes)));
  EXPECT_TRUE(shows({{0, causes}}));
  // Milliseconds each; comparing each with each would take far longer, instrumented or not.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

}  // namespace
}  // namespace Kavra::File
