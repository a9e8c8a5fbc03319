#include "Kavra/Store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kavra/EntityManager.h"
#include "Kavra/Json/Text.h"
#include "Kavra/Redis/DocumentHash.h"
#include "Kavra/Redis/ServerState.h"
#include "Kavra/StoreUrl.h"
#include "Qel/Clock.h"
#include "Qel/PollEventLoop.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "platform/Kavra/Documents.h"
#include "platform/Kavra/Redis/ServerProcess.h"
#include "platform/Kavra/RunUntil.h"
#include "platform/Kavra/StoreContract.h"
#include "support/LiveObjects.h"
#include "support/ProblemOf.h"
#include "support/TraceRecorder.h"

namespace Kavra {
namespace {

using kavratest::history;
using kavratest::kHistoryPath;
using kavratest::misfitHistory;
using kavratest::redundancy;
using kavratest::Reloads;
using support::problemOf;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Key;

class FileDatabase final : public kavratest::Database {
 public:
  Qel::Ptr<Store> store() override { return StoreUrl(directory_.url()).store(clock_); }
  Qel::Ptr<Feed> feed(Qel::EventLoop& loop) override {
    return StoreUrl(directory_.url()).feed(loop, clock_);
  }
  void putUnchecked(const Qel::String& path, const Qel::Document& document) override {
    directory_.write(Json::write(Qel::Document::Map{{path, document}}, Json::Form::line));
  }

 private:
  const kavratest::DatabaseDirectory directory_;
  const Qel::Ptr<Qel::Clock const> clock_ = Qel::make<Qel::SystemClock>();
};

class RedisDatabase final : public kavratest::Database {
 public:
  Qel::Ptr<Store> store() override { return StoreUrl(server_.url()).store(clock_); }
  Qel::Ptr<Feed> feed(Qel::EventLoop& loop) override {
    return StoreUrl(server_.url()).feed(loop, clock_);
  }
  void putUnchecked(const Qel::String& path, const Qel::Document& document) override {
    // As somebody does who keeps to the form, and to nothing else.
    Redis::Command hash = {"HSET", Redis::keyOf(path), "_v", "1", "n", "1", "0:n", "1"};
    const auto* causes =
        document.member("rebootHistory")->member("0")->member("causeQ")->as<Qel::Document::List>();
    hash.insert(hash.end(),
                {"0:0:d", causes->front().member("description")->as<Qel::String>()->stdString(),
                 "0:0:t", "5", "0:0:a", "", "0:0:b", ""});
    server_.command(hash);
    server_.command({"HSET", Redis::kIndexKey, path.stdString(), "1"});
  }

 private:
  const kavratest::ServerProcess server_;
  const Qel::Ptr<Qel::Clock const> clock_ = Qel::make<Qel::SystemClock>();
};

class StoreTest : public support::LiveObjects,
                  public testing::TestWithParam<kavratest::DatabaseKind> {
 protected:
  void put(const Qel::String& path, const Qel::Document& document) {
    store_->update(
        {path}, [&](Store::Documents& documents) { documents.insert_or_assign(path, document); });
  }
  void del(const Qel::String& path) {
    store_->update({path}, [&](Store::Documents& documents) { documents.erase(path); });
  }
  bool hold(const std::set<Qel::String>& places, const Store::Documents& documents) {
    return store_->publicationIs(kavratest::publicationOf(places, documents));
  }
  static std::uint64_t protocolOf(const Qel::Document& document) {
    return *document.member("protocol")->as<std::uint64_t>();
  }
  // Adds 1 to the protocol at "a" that many times, as a process of its own does.
  bool countUp(U32 edits) const {
    try {
      const auto store = database_->store();
      for (U32 edit = 0; edit < edits; ++edit) {
        store->update({"a"}, [](Store::Documents& documents) {
          Qel::Document& document = documents.at("a");
          document = redundancy(static_cast<U32>(protocolOf(document)) + 1, false);
        });
      }
      return true;
    } catch (const std::exception&) {
      return false;
    }
  }

  support::TraceRecorder log_;
  Qel::PollEventLoop loop_;
  const std::unique_ptr<kavratest::Database> database_ = GetParam().make();
  const Qel::Ptr<Store> store_ = database_->store();
};

TEST_P(StoreTest, IsEmptyAndReachableAtFirst) {
  EXPECT_THAT(store_->documents(""), IsEmpty());
  EXPECT_TRUE(store_->status().reachable);
  EXPECT_THAT(store_->status().quarantined, IsEmpty());
}

TEST_P(StoreTest, GivesBackWhatWasPublished) {
  put("cell/1/a", history({"one", "\xff\n", ""}));
  put("cell/2/b", redundancy(3, true));
  const Store::Documents expected{{"cell/1/a", history({"one", "\xff\n", ""})},
                                  {"cell/2/b", redundancy(3, true)}};
  EXPECT_EQ(store_->documents(""), expected);
  EXPECT_THAT(store_->documents("cell/1"), ElementsAre(Key("cell/1/a")));
  EXPECT_THAT(store_->documents("nothing"), IsEmpty());
}

TEST_P(StoreTest, ReplacesAndUnpublishesWholeDocuments) {
  put("a", history({"one"}));
  put("a", history({"two"}));
  EXPECT_EQ(store_->documents("").at("a"), history({"two"}));
  del("a");
  EXPECT_THAT(store_->documents(""), IsEmpty());
}

TEST_P(StoreTest, ShowsAnEditOnlyThePathsThatItAsksFor) {
  put("a", history({"one"}));
  put("b", history({"two"}));
  Store::Documents seen;
  store_->update({"a", "c"}, [&](Store::Documents& documents) { seen = documents; });
  EXPECT_EQ(seen, (Store::Documents{{"a", history({"one"})}}));
}

TEST_P(StoreTest, ChangesSeveralDocumentsInOneStep) {
  put("a", history({"one"}));
  store_->update({"a", "b", "c"}, [](Store::Documents& documents) {
    documents.erase("a");
    documents.emplace("b", history({"two"}));
    documents.emplace("c", redundancy(0, false));
  });
  EXPECT_THAT(store_->documents(""), ElementsAre(Key("b"), Key("c")));
}

TEST_P(StoreTest, ChangesNothingWhenAnEditGivesUp) {
  put("a", history({"one"}));
  const auto giveUp = [&] {
    store_->update({"a"}, [](Store::Documents& documents) {
      documents.clear();
      throw std::runtime_error("given up");
    });
  };
  EXPECT_EQ(problemOf<std::runtime_error>(giveUp), "given up");
  EXPECT_EQ(store_->documents("").at("a"), history({"one"}));
}

TEST_P(StoreTest, ChangesNothingWhenOneDocumentDoesNotFit) {
  const auto publish = [&] {
    store_->update({"a", "b"}, [](Store::Documents& documents) {
      documents.emplace("a", history({"one"}));
      documents.emplace("b", misfitHistory());
    });
  };
  EXPECT_EQ(problemOf<StoreException>(publish), std::string("b: ") + kavratest::kMisfitProblem);
  EXPECT_THAT(store_->documents(""), IsEmpty());
}

TEST_P(StoreTest, NamesTheKnownTypesToWhoeverPublishesAnother) {
  const std::string problem = problemOf<StoreException>([&] {
    put("a", Qel::Document::Map{{"type", "Nonsense"}});
  });
  EXPECT_THAT(problem, AllOf(HasSubstr("a: /type: unknown type 'Nonsense'"),
                             HasSubstr(kavratest::kHistoryType)));
}

TEST_P(StoreTest, GivesTheLargestDocumentsThatItTakesToEveryReader) {
  // Near the limit; under the sanitizers, where it would take minutes, what the way there does.
  const std::vector<std::string> causes(MANY_CAUSES, "c");
  const Reloads reloads{{0, causes}, {1, causes}};
  const Reloads fewer{{0, std::vector<std::string>(causes.size() / 4, "c")}};
  const Qel::Document document = kavratest::historyOf(reloads);
  const Qel::Document smaller = kavratest::historyOf(fewer);
  put(kHistoryPath, document);
  put("other", smaller);
  // Compared as a whole: to look for a difference takes longer than all else.
  EXPECT_TRUE(
      (store_->documents("") == Store::Documents{{kHistoryPath, document}, {"other", smaller}}));
  EXPECT_THAT(store_->status().problem, "");
  const auto manager = Qel::make<EntityManager>(database_->feed(loop_));
  const auto entity = manager->entityIs(kHistoryPath, kavratest::kHistoryType);
  const auto other = manager->entityIs("other", kavratest::kHistoryType);
  EXPECT_TRUE(kavratest::runUntil(
      loop_,
      [&] {
        return kavratest::reloadsOf(entity) == reloads && kavratest::reloadsOf(other) == fewer;
      },
      60.0));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_P(StoreTest, RefusesWhatIsOverALimitWithItsPlace) {
  const std::string place = std::string(kHistoryPath) + ": /rebootHistory/";
  const auto problem = [this](const Reloads& reloads) {
    return problemOf<StoreException>([&] { put(kHistoryPath, kavratest::historyOf(reloads)); });
  };
  EXPECT_EQ(problem({{0, {"a", std::string(1025, 'x')}}}),
            place + "0/causeQ/1/description: text of 1025 bytes is longer than 1024");
  EXPECT_EQ(problem({{0, std::vector<std::string>(65537, "x")}}),
            place + "0/causeQ: list of 65537 items is longer than 65536");
  const std::vector<std::string> causes(65000, "x");
  EXPECT_EQ(problem({{0, causes}, {1, causes}}),
            place + "1/causeQ/61665: the document has more than 380000 values");
  EXPECT_EQ(problem({{7, std::vector<std::string>(9000, std::string(1000, 'x'))}}),
            place +
                "7/causeQ/8264/description: the document's texts and names take more than "
                "8388608 octets");
  EXPECT_THAT(store_->documents(""), IsEmpty());
  EXPECT_EQ(problem({{0, std::vector<std::string>(8000, std::string(1024, 'x'))}}), "nothing");
}

TEST_P(StoreTest, TellsOfADocumentThatDoesNotFitAsItsFeedDoes) {
  database_->putUnchecked(kHistoryPath, history({std::string(1025, 'x')}));
  const std::vector<Quarantine> quarantined = store_->status().quarantined;
  ASSERT_EQ(quarantined.size(), 1U);
  EXPECT_EQ(quarantined[0].path, kHistoryPath);
  EXPECT_THAT(quarantined[0].why.stdString(), HasSubstr("1025 bytes is longer than 1024"));
  const auto feed = database_->feed(loop_);
  const auto follow = feed->followIs(
      kHistoryPath, [](const Qel::String&, const CheckedDocument*) { return Qel::String(); });
  EXPECT_TRUE(
      kavratest::runUntil(loop_, [&] { return feed->status().quarantined == quarantined; }));
}

TEST_P(StoreTest, HoldsWhatItIsToldToAndSaysWhetherItHadToPublish) {
  put("other", history({"other"}));
  const Store::Documents wanted{{"a", history({"one"})}, {"b", redundancy(3, true)}};
  EXPECT_TRUE(hold({"a", "b"}, wanted));
  EXPECT_FALSE(hold({"a", "b"}, wanted));
  const auto other = database_->store();
  other->forceIs(true);
  other->update({"a", "b"}, [](Store::Documents& documents) {
    documents.erase("a");
    documents["b"] = history({"two"});
  });
  EXPECT_TRUE(hold({"a", "b"}, wanted));
  EXPECT_TRUE(hold({"a", "b"}, {{"b", redundancy(3, true)}}));
  EXPECT_THAT(store_->documents(""), ElementsAre(Key("b"), Key("other")));
}

TEST_P(StoreTest, HoldsNothingElseBelowThePrefixesOfAClaim) {
  for (const char* path : {"cell/1/a", "cell/1/b", "cell/1/c", "cell/10/a", "cell"}) {
    put(path, history({"old"}));
  }
  auto publication = kavratest::publicationOf({"cell/1/"}, {{"cell/1/a", history({"new"})}});
  publication.spared = {"cell/1/b"};
  EXPECT_TRUE(store_->publicationIs(publication));
  EXPECT_FALSE(store_->publicationIs(publication));
  EXPECT_EQ(store_->documents(""), (Store::Documents{{"cell", history({"old"})},
                                                     {"cell/1/a", history({"new"})},
                                                     {"cell/1/b", history({"old"})},
                                                     {"cell/10/a", history({"old"})}}));
}

TEST_P(StoreTest, ListsWhatIsPublishedAndWhen) {
  const double before = Qel::make<Qel::SystemClock>()->now();
  EXPECT_THAT(store_->listing(""), IsEmpty());
  put("cell/1/a", history({"one"}));
  put("cell/2/b", history({"two"}));
  EXPECT_THAT(store_->listing("cell/2"), ElementsAre(Key("cell/2/b")));
  const Store::Listing listing = store_->listing("");
  EXPECT_THAT(listing, ElementsAre(Key("cell/1/a"), Key("cell/2/b")));
  for (const auto& [path, time] : listing) {
    ASSERT_TRUE(time.has_value()) << path;
    EXPECT_NEAR(*time, before, 60.0) << path;
  }
}

TEST_P(StoreTest, HoldsWhatIsToldInAnyFormAndPublishesItOnce) {
  using Map = Qel::Document::Map;
  Qel::Document::List causes;
  for (const Qel::Document& time :
       {Qel::Document(std::int64_t{-7}), Qel::Document(U32{1700000000}), Qel::Document(-0.0),
        Qel::Document(1.0 / 3), Qel::Document(5e-324), Qel::Document(1e9 + 0.1)}) {
    causes.push_back(Map{{"detail", ""}, {"time", time}, {"description", "\xff"}});
  }
  const Map reloads{{"10", Map{{"causeQ", causes}}}, {"2", Map{{"causeQ", Qel::Document::List{}}}}};
  const Store::Documents wanted{
      {"a", Map{{"rebootHistory", reloads}, {"type", kavratest::kHistoryType}}},
      {"b", Map{{"switchoverCapable", true},
                {"protocol", std::int64_t{3}},
                {"type", "Redundancy::RedundancyStatus"}}}};
  EXPECT_TRUE(hold({"a", "b"}, wanted));
  EXPECT_FALSE(hold({"a", "b"}, wanted));
  const Store::Documents held = store_->documents("");
  EXPECT_FALSE(hold({"a", "b"}, held));
  EXPECT_EQ(store_->documents(""), held);
}

TEST_P(StoreTest, RefusesPathsThatAreNoneOrWereNotAskedFor) {
  EXPECT_THAT(problemOf<Qel::RangeException>([&] { put("/a", history({"x"})); }),
              HasSubstr("'/a' is not a path"));
  const auto stray = [&] {
    store_->update({"a"},
                   [](Store::Documents& documents) { documents.emplace("b", history({"x"})); });
  };
  EXPECT_THAT(problemOf<Qel::RangeException>(stray), HasSubstr("'b' is not among the paths"));
  EXPECT_THAT(store_->documents(""), IsEmpty());
}

TEST_P(StoreTest, LosesNoneOfTheEditsOfManyProcesses) {
  constexpr U32 kWriters = 4;
  constexpr U32 kEdits = 25;
  put("a", redundancy(0, false));
  std::vector<pid_t> writers;
  for (U32 i = 0; i < kWriters; ++i) {
    const pid_t writer = ::fork();
    ASSERT_GE(writer, 0);
    if (writer == 0) ::_exit(countUp(kEdits) ? 0 : 1);
    writers.push_back(writer);
  }
  for (const pid_t writer : writers) {
    int status = -1;
    EXPECT_EQ(::waitpid(writer, &status, 0), writer);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(protocolOf(store_->documents("").at("a")), kWriters * kEdits);
}

TEST_P(StoreTest, IsFollowedByFeedsThatWereThereAndThatComeLater) {
  const auto early = Qel::make<EntityManager>(database_->feed(loop_));
  const auto before = early->entityIs(kHistoryPath, kavratest::kHistoryType);
  put(kHistoryPath, history({"one"}));
  const auto late = Qel::make<EntityManager>(database_->feed(loop_));
  const auto after = late->entityIs(kHistoryPath, kavratest::kHistoryType);
  const Reloads expected{{0, {"one"}}};
  EXPECT_TRUE(kavratest::runUntil(loop_, [&] {
    return kavratest::reloadsOf(before) == expected && kavratest::reloadsOf(after) == expected;
  }));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_P(StoreTest, TellsFeedsOfEachStateThatLasts) {
  const auto manager = Qel::make<EntityManager>(database_->feed(loop_));
  const auto entity = manager->entityIs(kHistoryPath, kavratest::kHistoryType);
  for (const char* cause : {"one", "two", "three"}) {
    put(kHistoryPath, history({cause}));
    EXPECT_TRUE(kavratest::runUntil(loop_, [&] {
      return kavratest::reloadsOf(entity) == Reloads{{0, {cause}}};
    })) << cause;
  }
}

TEST_P(StoreTest, TellsFeedsOfWhatIsUnpublished) {
  const auto feed = database_->feed(loop_);
  int published = 0;
  int unpublished = 0;
  const auto follow =
      feed->followIs(kHistoryPath, [&](const Qel::String&, const CheckedDocument* it) {
        ++(it == nullptr ? unpublished : published);
        return Qel::String();
      });
  put("other", redundancy(0, true));
  put(kHistoryPath, history({"one"}));
  EXPECT_TRUE(kavratest::runUntil(loop_, [&] { return published == 1; }));
  del(kHistoryPath);
  EXPECT_TRUE(kavratest::runUntil(loop_, [&] { return unpublished == 1; }));
}

TEST_P(StoreTest, CarriesAnyOctetsToTheEntity) {
  std::string octets;
  for (int octet = 0; octet < 256; ++octet) octets.push_back(static_cast<char>(octet));
  put(kHistoryPath, history({octets}));
  const auto manager = Qel::make<EntityManager>(database_->feed(loop_));
  const auto entity = manager->entityIs(kHistoryPath, kavratest::kHistoryType);
  EXPECT_TRUE(kavratest::runUntil(loop_, [&] {
    return kavratest::reloadsOf(entity) == Reloads{{0, {octets}}};
  }));
}

INSTANTIATE_TEST_SUITE_P(
    Stores, StoreTest,
    testing::Values(
        kavratest::DatabaseKind{"File", [] { return std::make_unique<FileDatabase>(); }},
        kavratest::DatabaseKind{"Redis", [] { return std::make_unique<RedisDatabase>(); }}),
    [](const auto& kind) { return kind.param.name; });

}  // namespace
}  // namespace Kavra
