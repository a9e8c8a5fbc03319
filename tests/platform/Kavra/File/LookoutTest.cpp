#include "Kavra/File/Lookout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Qel/Exception.h"
#include "Qel/PollEventLoop.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "platform/Kavra/File/HeldUpFiles.h"
#include "platform/Kavra/RunUntil.h"
#include "support/LiveObjects.h"
#include "support/ManualEventLoop.h"
#include "support/OpenDescriptors.h"

namespace Kavra::File {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Key;

class LookoutTest : public support::LiveObjectsTest {
 protected:
  Qel::Ptr<Lookout> lookOut() {
    return Qel::make<Lookout>(loop_, directory_.file(), files_.options(),
                              [this](const Finding& finding) { log_.push_back(textOf(finding)); });
  }
  static std::string textOf(const Finding& finding) {
    return finding.content ? finding.content->text : "nothing";
  }
  bool until(const std::function<bool()>& condition) {
    return kavratest::runUntil(loop_, condition);
  }

  const kavratest::DatabaseDirectory directory_;
  kavratest::HeldUpFiles files_;
  Qel::PollEventLoop loop_;
  std::vector<std::string> log_;
};

TEST_F(LookoutTest, HandsOverWhatItFindsFirst) {
  directory_.write("one");
  const auto lookout = lookOut();
  const auto first = lookout->first(10.0);
  ASSERT_TRUE(first);
  EXPECT_EQ(textOf(*first), "one");
  loop_.runOnce(0.0);
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(LookoutTest, MakesDocumentsOfTheText) {
  directory_.write(R"({"good": {"type": "x"}, "bad": {"type": "x", "type": "y"}})");
  const auto lookout = lookOut();
  const auto first = lookout->first(10.0);
  ASSERT_TRUE(first && first->meaning);
  EXPECT_THAT(first->meaning->documents, ElementsAre(Key("good")));
  EXPECT_THAT(first->meaning->problems, ElementsAre(Key("bad")));
  EXPECT_EQ(first->misfit, "");
}

TEST_F(LookoutTest, TellsWhyATextIsNotThatOfADatabase) {
  directory_.write("[]");
  const auto lookout = lookOut();
  const auto first = lookout->first(10.0);
  ASSERT_TRUE(first);
  EXPECT_FALSE(first->meaning);
  EXPECT_THAT(first->misfit, EndsWith("expected a map of documents but found a list"));
}

TEST_F(LookoutTest, TellsOfChangesFromTheLoop) {
  const auto lookout = lookOut();
  ASSERT_TRUE(until([this] { return log_.size() == 1; }));
  directory_.replace("two");
  ASSERT_TRUE(until([this] { return log_.size() == 2; }));
  directory_.remove();
  ASSERT_TRUE(until([this] { return log_.size() == 3; }));
  EXPECT_THAT(log_, ElementsAre("nothing", "two", "nothing"));
}

TEST_F(LookoutTest, TellsWhatIsThereWhenItIsAsked) {
  directory_.write("one");
  const auto lookout = lookOut();
  ASSERT_TRUE(until([this] { return log_.size() == 1; }));
  lookout->lookAgain();
  ASSERT_TRUE(until([this] { return log_.size() == 2; }));
  EXPECT_THAT(log_, ElementsAre("one", "one"));
}

TEST_F(LookoutTest, WaitsForNoFileSystemThatDoesNotAnswer) {
  files_.isHeldUpIs(true);
  directory_.write("one");
  const auto lookout = lookOut();
  EXPECT_FALSE(lookout->first(0.01));
  ASSERT_TRUE(until([this] { return files_.waiting() == 1; }));
  EXPECT_FALSE(lookout->isHeldUp());
  EXPECT_TRUE(lookout->isHeldUp());
  files_.isHeldUpIs(false);
  EXPECT_TRUE(until([this] { return !log_.empty(); }));
  EXPECT_EQ(log_.front(), "one");
}

TEST_F(LookoutTest, TellsAfterAwaitedLooksThatNothingHasChanged) {
  directory_.write("one");
  const auto lookout = lookOut();
  ASSERT_TRUE(until([this] { return log_.size() == 1; }));
  files_.isHeldUpIs(true);
  ASSERT_TRUE(until([this] { return files_.waiting() == 1; }));
  EXPECT_FALSE(lookout->isHeldUp());
  EXPECT_TRUE(lookout->isHeldUp());
  files_.isHeldUpIs(false);
  ASSERT_TRUE(until([this] { return log_.size() == 2; }));
  EXPECT_THAT(log_, ElementsAre("one", "one"));
}

TEST_F(LookoutTest, IsNotHeldUpByOneLookAfterAnother) {
  files_.isHeldUpIs(true);
  const auto lookout = lookOut();
  ASSERT_TRUE(until([this] { return files_.waiting() == 1; }));
  EXPECT_FALSE(lookout->isHeldUp());
  files_.isHeldUpIs(false);
  // Its finding tells that this look is over.
  ASSERT_TRUE(until([this] { return log_.size() == 1; }));
  files_.isHeldUpIs(true);
  ASSERT_TRUE(until([this] { return files_.waiting() == 1; }));
  EXPECT_FALSE(lookout->isHeldUp());
}

TEST_F(LookoutTest, HasOneThreadHoweverOftenItIsAsked) {
  files_.isHeldUpIs(true);
  const auto lookout = lookOut();
  for (int time = 0; time < 5; ++time) {
    lookout->lookAgain();
    EXPECT_FALSE(lookout->first(0.01));
  }
  EXPECT_EQ(files_.waited(), 1);
}

TEST_F(LookoutTest, MayBeLetGoWhileALookIsHeldUp) {
  const std::ptrdiff_t before = support::openDescriptors();
  files_.isHeldUpIs(true);
  auto lookout = lookOut();
  ASSERT_TRUE(until([this] { return files_.waiting() == 1; }));
  lookout = nullptr;
  files_.isHeldUpIs(false);
  // Fewer, where the thread of an earlier test ended only now.
  EXPECT_TRUE(until([&] { return support::openDescriptors() <= before; }));
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(LookoutTest, MayBeLetGoByWhomItTells) {
  Qel::Ptr<Lookout> lookout;
  lookout = Qel::make<Lookout>(loop_, directory_.file(), files_.options(),
                               [&](const Finding&) { lookout = nullptr; });
  EXPECT_TRUE(until([&] { return !lookout; }));
}

TEST_F(LookoutTest, NeedsRoomInTheLoop) {
  support::ManualEventLoop full;
  full.mostDescriptorsIs(0);
  EXPECT_THROW(Qel::make<Lookout>(full, directory_.file(), LookOptions(), [](const Finding&) {}),
               Qel::RangeException);
}

}  // namespace
}  // namespace Kavra::File
