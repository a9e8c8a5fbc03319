#include "Kavra/Feed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "Qel/ActivityManager.h"
#include "Qel/Exception.h"
#include "platform/Kavra/Documents.h"
#include "support/DocumentFeed.h"
#include "support/LiveObjects.h"
#include "support/RunStep.h"
#include "support/TraceRecorder.h"

namespace Kavra {
namespace {

using kavratest::history;
using kavratest::misfitHistory;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string told(const std::string& who, const Qel::String& path, const CheckedDocument* checked) {
  std::string line = who + " " + path.stdString();
  if (checked == nullptr) return line + " gone";
  if (!checked->fits()) return line + " misfit";
  const auto entity = codecOf(checked->type).newEntity("x");
  checked->change(*entity, support::runStep);
  for (const auto& [index, causes] : kavratest::reloadsOf(entity)) {
    for (const std::string& cause : causes) line += " " + cause;
  }
  return line;
}

class FeedTest : public support::LiveObjectsTest {
 protected:
  Follow::Call noting(const std::string& who) {
    return [this, who](const Qel::String& path, const CheckedDocument* checked) {
      log_.note(told(who, path, checked));
      return Qel::String();
    };
  }
  std::vector<std::string> settled() {
    Qel::activityManager()->run();
    return log_.takeLines();
  }

  support::TraceRecorder log_;
  Qel::Ptr<support::DocumentFeed> feed_ = Qel::make<support::DocumentFeed>();
};

TEST_F(FeedTest, TellsOfWhatStandsFromPutOffWork) {
  feed_->documentIs("a", history({"one"}));
  const auto follow = feed_->followIs("a", noting("F"));
  EXPECT_THAT(log_.takeLines(), IsEmpty());
  EXPECT_THAT(settled(), ElementsAre("F a one"));
  EXPECT_THAT(settled(), IsEmpty());
}

TEST_F(FeedTest, TellsOnceOfWhatChangesBeforeTheFollowBegins) {
  feed_->documentIs("a", history({"one"}));
  const auto follow = feed_->followIs("a", noting("F"));
  feed_->documentIs("a", history({"two"}));
  EXPECT_THAT(log_.takeLines(), IsEmpty());
  EXPECT_THAT(settled(), ElementsAre("F a two"));
}

TEST_F(FeedTest, KnowsWhatIsServedAndPublishedNoLonger) {
  const auto follow = feed_->followIs("a", noting("F"));
  const auto other = feed_->followIs("b", noting("G"));
  const auto all = feed_->followPrefixIs("", noting("P"));
  settled();
  EXPECT_TRUE(feed_->status().isFresh());
  feed_->documentIs("b", misfitHistory());
  feed_->documentIs("a", history({"one"}));
  feed_->documentDel("a");
  feed_->documentDel("b");
  EXPECT_THAT(feed_->status().withdrawn, ElementsAre("a"));
  EXPECT_FALSE(feed_->status().isFresh());
  feed_->documentIs("a", history({"one"}));
  EXPECT_TRUE(feed_->status().isFresh());
}

TEST_F(FeedTest, IsFollowedWhileSomebodyDoes) {
  EXPECT_FALSE(feed_->status().followed);
  const auto follow = feed_->followIs("a", noting("F"));
  EXPECT_TRUE(feed_->status().followed);
}

TEST_F(FeedTest, TellsOfPublishingReplacingAndUnpublishing) {
  const auto follow = feed_->followIs("a", noting("F"));
  EXPECT_THAT(settled(), IsEmpty());
  feed_->documentIs("a", history({"one"}));
  feed_->documentIs("a", history({"two"}));
  feed_->documentDel("a");
  EXPECT_THAT(log_.takeLines(), ElementsAre("F a one", "F a two", "F a gone"));
}

TEST_F(FeedTest, IsSilentAboutEqualDocumentsAndOtherPaths) {
  const auto follow = feed_->followIs("a", noting("F"));
  feed_->documentIs("a", history({"one"}));
  EXPECT_THAT(settled(), ElementsAre("F a one"));
  feed_->documentIs("a", history({"one"}));
  feed_->documentIs("a/b", history({"two"}));
  feed_->documentDel("c");
  EXPECT_THAT(settled(), IsEmpty());
}

TEST_F(FeedTest, FollowsEveryPathThatBeginsWithAPrefix) {
  feed_->documentIs("cell/1/x", history({"one"}));
  const auto follow = feed_->followPrefixIs("cell/1", noting("F"));
  EXPECT_THAT(settled(), ElementsAre("F cell/1/x one"));
  feed_->documentIs("cell/1/y", history({"two"}));
  feed_->documentIs("cell/2/x", history({"three"}));
  EXPECT_THAT(settled(), ElementsAre("F cell/1/y two"));
}

TEST_F(FeedTest, TakesAllDocumentsInBeforeItTellsOfAny) {
  std::vector<std::string> seen;
  const auto follow =
      feed_->followIs("a", [&](const Qel::String& path, const CheckedDocument* checked) {
        log_.note(told("F", path, checked));
        seen.push_back(std::to_string(feed_->status().quarantined.size()));
        return Qel::String();
      });
  settled();
  feed_->documentsAre({{"a", history({"one"})}, {"b", misfitHistory()}});
  EXPECT_THAT(seen, ElementsAre("1"));
}

TEST_F(FeedTest, DropsWhatAWholeSetNoLongerHolds) {
  const auto follow = feed_->followPrefixIs("", noting("F"));
  feed_->documentsAre({{"a", history({"one"})}, {"b", history({"two"})}});
  EXPECT_THAT(settled(), ElementsAre("F a one", "F b two"));
  feed_->documentsAre({{"b", history({"two"})}, {"c", history({"three"})}});
  EXPECT_THAT(log_.takeLines(), ElementsAre("F a gone", "F c three"));
}

TEST_F(FeedTest, KeepsWhatIsUnchangedAndTellsNobodyOfIt) {
  const auto follow = feed_->followPrefixIs("", noting("F"));
  feed_->documentsAre({{"a", history({"one"})}, {"b", history({"two"})}});
  EXPECT_THAT(settled(), ElementsAre("F a one", "F b two"));
  feed_->documentsAre({{"b", history({"three"})}}, {}, {"a"});
  EXPECT_THAT(log_.takeLines(), ElementsAre("F b three"));
  const auto late = feed_->followIs("a", noting("L"));
  EXPECT_THAT(settled(), ElementsAre("L a one"));
}

TEST_F(FeedTest, TakesNoDocumentForGoodAfterARefusal) {
  EXPECT_FALSE(feed_->isGood("a"));
  feed_->documentsAre({{"a", misfitHistory()}});
  EXPECT_FALSE(feed_->isGood("a"));
  feed_->documentsAre({{"a", history({"one"})}});
  EXPECT_TRUE(feed_->isGood("a"));
  feed_->documentsAre({{"a", misfitHistory()}});
  EXPECT_FALSE(feed_->isGood("a"));
  feed_->documentsAre({{"a", history({"one"})}});
  EXPECT_TRUE(feed_->isGood("a"));
}

TEST_F(FeedTest, QuarantinesAMisfitAndReportsItOnce) {
  feed_->documentIs("a", history({"one"}));
  feed_->documentIs("a", misfitHistory());
  feed_->documentIs("a", misfitHistory());
  EXPECT_THAT(log_.takeLines(),
              ElementsAre(std::string("Kavra 0: a: refused: ") + kavratest::kMisfitProblem));
  EXPECT_THAT(feed_->status().quarantined, ElementsAre(Quarantine{"a", kavratest::kMisfitProblem}));
}

TEST_F(FeedTest, ServesTheLastGoodDocumentOfAQuarantinedPath) {
  feed_->documentIs("a", history({"one"}));
  feed_->documentIs("a", misfitHistory());
  log_.clear();
  const auto follow = feed_->followIs("a", noting("F"));
  EXPECT_THAT(settled(), ElementsAre("F a one"));
}

TEST_F(FeedTest, TellsOfAMisfitWhereThereNeverWasAGoodDocument) {
  feed_->documentIs("a", misfitHistory());
  log_.clear();
  const auto follow = feed_->followIs("a", noting("F"));
  EXPECT_THAT(settled(), ElementsAre("F a misfit"));
}

TEST_F(FeedTest, TracesTheEndOfAQuarantineAsItsBeginning) {
  const std::string refused = std::string("Kavra 0: a: refused: ") + kavratest::kMisfitProblem;
  const std::string good = "Kavra 0: a: no longer refused";
  feed_->documentIs("a", misfitHistory());
  feed_->documentIs("a", history({"one"}));
  EXPECT_THAT(log_.takeLines(), ElementsAre(refused, good));
  feed_->documentIs("a", misfitHistory());
  feed_->documentIs("a", history({"one"}));
  EXPECT_THAT(log_.takeLines(), ElementsAre(refused, good));
  feed_->documentIs("a", misfitHistory());
  feed_->documentDel("a");
  EXPECT_THAT(log_.takeLines(), ElementsAre(refused, good + ": nothing is published there"));
  feed_->documentIs("a", history({"two"}));
  feed_->documentDel("a");
  EXPECT_THAT(log_.takeLines(), IsEmpty());
}

TEST_F(FeedTest, KeepsOfAMisfitTheReasonAlone) {
  feed_->documentIs("a", misfitHistory());
  Qel::Document kept = "something";
  const auto follow = feed_->followIs("a", [&](const Qel::String&, const CheckedDocument* checked) {
    kept = checked->document;
    return Qel::String();
  });
  settled();
  EXPECT_TRUE(kept.isNull());
}

TEST_F(FeedTest, TellsOnceOfTheSameMisfitAndOfEachOther) {
  const auto wrong = [](const Qel::Document& reloads) {
    return Qel::Document::Map{{"type", kavratest::kHistoryType}, {"rebootHistory", reloads}};
  };
  using List = Qel::Document::List;
  using Map = Qel::Document::Map;
  const auto follow = feed_->followIs("a", noting("F"));
  settled();
  for (const Qel::Document& reloads :
       {Qel::Document(5U), Qel::Document(6U), Qel::Document(std::int64_t{-6}), Qel::Document(6.0),
        Qel::Document("6"), Qel::Document("7"), Qel::Document(true), Qel::Document(false),
        Qel::Document(), Qel::Document(List{1U, 2U}), Qel::Document(List{2U, 1U}),
        Qel::Document(Map{{"x", 1U}}), Qel::Document(Map{{"y", 1U}}),
        Qel::Document(Map{{"y", 2U}})}) {
    for (int time = 0; time < 3; ++time) feed_->documentIs("a", wrong(reloads));
    EXPECT_THAT(log_.takeLines(),
                ElementsAre(HasSubstr("a: refused: /rebootHistory"), "F a misfit"))
        << testing::PrintToString(reloads.kind());
  }
}

TEST_F(FeedTest, EndsTheQuarantineWithoutTellingOfTheDocumentThatIsServed) {
  const auto follow = feed_->followIs("a", noting("F"));
  feed_->documentIs("a", history({"one"}));
  settled();
  feed_->documentIs("a", misfitHistory());
  log_.clear();
  feed_->documentIs("a", history({"one"}));
  EXPECT_THAT(settled(), ElementsAre("Kavra 0: a: no longer refused"));
  EXPECT_THAT(feed_->status().quarantined, IsEmpty());
  feed_->documentIs("a", history({"two"}));
  EXPECT_THAT(settled(), ElementsAre("F a two"));
}

TEST_F(FeedTest, RemembersAndTracesARefusalUntilTheFollowerAccepts) {
  Qel::String answer = "not for me";
  const auto follow =
      feed_->followIs("a", [&](const Qel::String&, const CheckedDocument*) { return answer; });
  feed_->documentIs("a", history({"one"}));
  EXPECT_THAT(settled(), ElementsAre("Kavra 0: a: refused: not for me"));
  EXPECT_THAT(feed_->status().quarantined, ElementsAre(Quarantine{"a", "not for me"}));
  feed_->documentIs("a", history({"two"}));
  EXPECT_THAT(settled(), IsEmpty());
  answer = {};
  feed_->documentIs("a", history({"three"}));
  EXPECT_THAT(settled(), ElementsAre("Kavra 0: a: no longer refused"));
  EXPECT_THAT(feed_->status().quarantined, IsEmpty());
}

TEST_F(FeedTest, EndsARefusalOnceAndSaysWhy) {
  const auto follow =
      feed_->followIs("a", [&](const Qel::String&, const CheckedDocument* checked) -> Qel::String {
        return checked != nullptr && checked->fits() ? "not for me" : "";
      });
  feed_->documentIs("a", history({"one"}));
  settled();
  feed_->documentDel("a");
  EXPECT_THAT(settled(), ElementsAre("Kavra 0: a: no longer refused: nothing is published there"));
  feed_->documentIs("a", history({"one"}));
  settled();
  // It goes from one quarantine into the other.
  feed_->documentIs("a", misfitHistory());
  EXPECT_THAT(settled(), ElementsAre(HasSubstr("a: refused: ")));
}

TEST_F(FeedTest, TracesWhatEscapesAFollowerAndTellsTheOthers) {
  const auto first =
      feed_->followIs("a", [](const Qel::String&, const CheckedDocument*) -> Qel::String {
        throw std::runtime_error("boom");
      });
  const auto second = feed_->followIs(
      "a", [](const Qel::String&, const CheckedDocument*) -> Qel::String { throw 5; });
  const auto third = feed_->followIs("a", noting("F"));
  settled();
  feed_->documentIs("a", history({"one"}));
  EXPECT_THAT(log_.takeLines(), ElementsAre("Kavra 0: a: a handler failed: boom",
                                            "Kavra 0: a: a handler failed", "F a one"));
}

TEST_F(FeedTest, DoesNotCallAFollowerThatAnEarlierOneLetGo) {
  Qel::Ptr<Follow> second;
  const auto first = feed_->followIs("a", [&](const Qel::String&, const CheckedDocument*) {
    second = nullptr;
    return Qel::String();
  });
  second = feed_->followIs("a", noting("F"));
  settled();
  feed_->documentIs("a", history({"one"}));
  EXPECT_THAT(log_.takeLines(), IsEmpty());
}

TEST_F(FeedTest, LetsAFollowerEndItselfAndTheFeedFromInsideItsCall) {
  Qel::Ptr<Follow> follow;
  follow = feed_->followPrefixIs("", [&](const Qel::String& path, const CheckedDocument*) {
    log_.note("told of " + path.stdString());
    follow = nullptr;
    feed_ = nullptr;
    return Qel::String();
  });
  settled();
  const Feed::Documents both{{"a", history({"one"})}, {"b", history({"two"})}};
  feed_->documentsAre(both);
  EXPECT_THAT(log_.takeLines(), ElementsAre("told of a"));
  EXPECT_FALSE(feed_);
}

TEST_F(FeedTest, LetsAFollowerEndItselfFromItsFirstCall) {
  feed_->documentsAre({{"a", history({"one"})}, {"b", history({"two"})}});
  Qel::Ptr<Follow> follow;
  follow = feed_->followPrefixIs("", [&](const Qel::String& path, const CheckedDocument*) {
    log_.note("told of " + path.stdString());
    follow = nullptr;
    feed_ = nullptr;
    return Qel::String();
  });
  EXPECT_THAT(settled(), ElementsAre("told of a"));
}

TEST_F(FeedTest, BeginsAFollowThatIsMadeInsideACall) {
  Qel::Ptr<Follow> second;
  const auto first = feed_->followIs("a", [&](const Qel::String&, const CheckedDocument*) {
    if (!second) second = feed_->followIs("a", noting("second"));
    return Qel::String();
  });
  settled();
  feed_->documentIs("a", history({"one"}));
  EXPECT_THAT(log_.takeLines(), IsEmpty());
  EXPECT_THAT(settled(), ElementsAre("second a one"));
}

TEST_F(FeedTest, ForgetsAFollowThatIsLetGoBeforeItBegan) {
  feed_->documentIs("a", history({"one"}));
  Qel::Ptr<Follow> follow = feed_->followIs("a", noting("F"));
  follow = nullptr;
  EXPECT_THAT(settled(), IsEmpty());
}

TEST_F(FeedTest, RefusesToFollowWhatIsNoPath) {
  EXPECT_THROW(static_cast<void>(feed_->followIs("/a", noting("F"))), Qel::RangeException);
}

TEST_F(FeedTest, QuarantinesOnceWhatCouldNotBeReadAndKeepsTheLastGoodDocument) {
  feed_->documentsAre({{"a", history({"one"})}});
  const auto early = feed_->followIs("a", noting("F"));
  EXPECT_THAT(settled(), ElementsAre("F a one"));
  for (int time = 0; time < 2; ++time) feed_->documentsAre({}, {{"a", "torn"}});
  EXPECT_THAT(settled(), ElementsAre("Kavra 0: a: refused: torn", "F a misfit"));
  const auto late = feed_->followIs("a", noting("L"));
  EXPECT_THAT(settled(), ElementsAre("L a one"));
  EXPECT_EQ(feed_->status().quarantined, (std::vector<Quarantine>{{"a", "torn"}}));
  feed_->documentsAre({}, {{"a", "torn otherwise"}});
  EXPECT_THAT(settled(), ElementsAre(HasSubstr("torn otherwise"), "F a misfit", "L a misfit"));
  feed_->documentsAre({{"a", history({"one"})}});
  EXPECT_THAT(settled(), ElementsAre("Kavra 0: a: no longer refused"));
  EXPECT_THAT(feed_->status().quarantined, IsEmpty());
}

TEST_F(FeedTest, QuarantinesADocumentUnderWhatIsNoPath) {
  feed_->documentsAre({{"/a", history({"one"})}, {"b", history({"two"})}});
  EXPECT_THAT(feed_->status().quarantined, ElementsAre(Quarantine{"/a", "/: this is not a path"}));
}

}  // namespace
}  // namespace Kavra
