#include "Kavra/Redis/Store.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Kavra/Redis/DocumentHash.h"
#include "Kavra/Redis/Owners.h"
#include "Qel/Clock.h"
#include "platform/Kavra/Documents.h"
#include "platform/Kavra/Redis/ServerProcess.h"
#include "platform/Kavra/StoreContract.h"
#include "support/LiveObjects.h"
#include "support/ManualClock.h"
#include "support/ProblemOf.h"

namespace Kavra::Redis {
namespace {

using kavratest::history;
using kavratest::kHistoryPath;
using kavratest::kRedundancyPath;
using kavratest::redundancy;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Key;
using testing::StartsWith;

const std::string kHistoryKey = keyOf(kHistoryPath);

class StoreTest : public support::LiveObjectsTest {
 protected:
  void put(const Qel::String& path, const Qel::Document& document) {
    store_->update({path}, [&](Kavra::Store::Documents& documents) {
      documents.insert_or_assign(path, document);
    });
  }
  static std::string problemOf(const std::function<void()>& work) {
    return support::problemOf<StoreException>(work);
  }
  Reply command(const Command& command) const { return server_.command(command); }
  std::string epoch() const { return command({"GET", kEpochKey}).text; }

  kavratest::ServerProcess server_;
  const Qel::Ptr<Qel::Clock const> clock_ = Qel::make<Qel::SystemClock>();
  const Qel::Ptr<Store> store_ = Qel::make<Store>(server_.options(), clock_);
};

TEST_F(StoreTest, RingsOnceForEachPublicationAndKeepsTheEpoch) {
  put(kHistoryPath, history({"one"}));
  const std::string first = epoch();
  EXPECT_EQ(first.size(), 32U);
  put(kRedundancyPath, redundancy(3, true));
  EXPECT_EQ(epoch(), first);
  EXPECT_EQ(command({"XLEN", kLogKey}).integer, 2);
}

TEST_F(StoreTest, IsSilentWhenNothingChanges) {
  put(kHistoryPath, history({"one"}));
  put(kHistoryPath, history({"one"}));
  EXPECT_EQ(command({"XLEN", kLogKey}).integer, 1);
}

TEST_F(StoreTest, KeepsTheLogBounded) {
  for (U32 i = 0; i < 1500; ++i) put(kRedundancyPath, redundancy(i, true));
  EXPECT_LT(command({"XLEN", kLogKey}).integer, 1300);
}

TEST_F(StoreTest, BeginsANewEpochWhereTheLogWasReplaced) {
  put(kHistoryPath, history({"one"}));
  const std::string first = epoch();
  command({"DEL", kLogKey});
  command({"SET", kLogKey, "x"});
  put(kHistoryPath, history({"two"}));
  EXPECT_NE(epoch(), first);
  EXPECT_EQ(command({"TYPE", kLogKey}).text, "stream");
  EXPECT_EQ(store_->documents("").at(kHistoryPath), history({"two"}));
}

TEST_F(StoreTest, ReplacesWhatStandsInThePlaceOfAnyOfItsKeys) {
  for (const std::string& key : {std::string(kEpochKey), std::string(kIndexKey), kHistoryKey}) {
    put(kHistoryPath, history({"one"}));
    command({"DEL", key});
    command({"LPUSH", key, "x"});
    put(kHistoryPath, history({"two"}));
    EXPECT_EQ(store_->documents("").at(kHistoryPath), history({"two"})) << key;
    EXPECT_EQ(store_->status().problem, "") << key;
  }
}

TEST_F(StoreTest, TellsOfADocumentThatCannotBeRead) {
  put(kHistoryPath, history({"one"}));
  command({"HSET", kHistoryKey, "0:0:t", "nan"});
  EXPECT_THAT(store_->documents(""), ElementsAre(Key(kHistoryPath)));
  const Status status = store_->status();
  ASSERT_EQ(status.quarantined.size(), 1U);
  EXPECT_EQ(status.quarantined[0].path, kHistoryPath);
  EXPECT_THAT(status.quarantined[0].why.stdString(),
              StartsWith("key " + kHistoryKey + ", field _c: "));
}

TEST_F(StoreTest, FindsADocumentThatWasWrittenByHand) {
  command(
      {"HSET", keyOf(kRedundancyPath), "_v", "1", "protocol", "3", "switchoverCapable", "true"});
  EXPECT_EQ(store_->documents(kRedundancyPath).at(kRedundancyPath), redundancy(3, true));
  EXPECT_THAT(store_->documents(""), IsEmpty());
  command({"XADD", kLogKey, "*", "k", keyOf(kRedundancyPath)});
  EXPECT_EQ(store_->documents("").at(kRedundancyPath), redundancy(3, true));
}

TEST_F(StoreTest, PublishesNothingWhenTheServerHasNoMemoryLeft) {
  put(kHistoryPath, history({"one"}));
  command({"CONFIG", "SET", "maxmemory", "1"});
  EXPECT_THAT(problemOf([&] { put(kHistoryPath, history({"two"})); }),
              AllOf(HasSubstr(server_.url()), HasSubstr("OOM")));
  command({"CONFIG", "SET", "maxmemory", "0"});
  EXPECT_EQ(store_->documents("").at(kHistoryPath), history({"one"}));
  put(kHistoryPath, history({"two"}));
  EXPECT_EQ(store_->documents("").at(kHistoryPath), history({"two"}));
}

TEST_F(StoreTest, ReadsFromAServerThatHasNoMemoryLeft) {
  put(kHistoryPath, history({"one"}));
  const Status before = store_->status();
  command({"CONFIG", "SET", "maxmemory", "1"});
  EXPECT_EQ(store_->documents("").at(kHistoryPath), history({"one"}));
  const Status full = store_->status();
  EXPECT_TRUE(full.reachable);
  EXPECT_EQ(full.lastId, before.lastId);
  EXPECT_EQ(full.epoch, before.epoch);
}

// Somebody wrote it past every door: more fields than any document has.
TEST_F(StoreTest, TellsOfAHashThatIsTooLargeAndReadsTheOthers) {
  put(kRedundancyPath, redundancy(3, true));
  for (int part = 0; part < 8; ++part) {
    Command hash{"HSET", kHistoryKey};
    for (int field = 0; field < 100000; ++field) {
      hash.insert(hash.end(), {fmt::format("{}", part * 100000 + field), ""});
    }
    ASSERT_FALSE(command(hash).isError());
  }
  command({"HSET", kIndexKey, kHistoryPath, "1"});
  EXPECT_EQ(store_->documents("").at(kRedundancyPath), redundancy(3, true));
  const Status status = store_->status();
  EXPECT_EQ(status.problem, "");
  EXPECT_THAT(status.quarantined,
              ElementsAre(Quarantine{
                  kHistoryPath, "key " + kHistoryKey + ", field /: larger than 100663296 octets"}));
  put(kHistoryPath, history({"one"}));
  EXPECT_EQ(store_->documents("").at(kHistoryPath), history({"one"}));
}

TEST_F(StoreTest, NamesTheServerThatIsNotThere) {
  server_.kill();
  const std::string problem = problemOf([&] { store_->documents(""); });
  EXPECT_EQ(problem, server_.url() + ": cannot connect: Connection refused");
  EXPECT_FALSE(store_->status().reachable);
  EXPECT_EQ(store_->status().problem.stdString(), problem);
}

TEST_F(StoreTest, GivesUpAServerThatDoesNotAnswer) {
  server_.signal(SIGSTOP);
  EXPECT_EQ(problemOf([&] { store_->documents(""); }), server_.url() + ": no answer within 3 s");
  server_.signal(SIGCONT);
  EXPECT_THAT(store_->documents(""), IsEmpty());
}

TEST_F(StoreTest, OpensAndClosesAConnectionForEachOperation) {
  for (int i = 0; i < 20; ++i) store_->documents("");
  EXPECT_LE(server_.command({"CLIENT", "LIST"}).text.size(), 500U);
}

class HoldingTest : public StoreTest {
 protected:
  Kavra::Store::Publication publication() const {
    return kavratest::publicationOf({kHistoryPath, kRedundancyPath}, documents_);
  }
  bool hold() { return store_->publicationIs(publication()); }

  Kavra::Store::Documents documents_{{kHistoryPath, history({"one"})},
                                     {kRedundancyPath, redundancy(3, true)}};
};

TEST_F(HoldingTest, PublishesOnceAndThenLooks) {
  EXPECT_TRUE(hold());
  EXPECT_FALSE(hold());
  EXPECT_EQ(command({"XLEN", kLogKey}).integer, 1);
  EXPECT_EQ(store_->documents(""), documents_);
}

TEST_F(HoldingTest, PublishesOnceWhereTheServerKeepsTheFieldsInNoOrder) {
  kavratest::Reloads reloads;
  for (U32 index = 0; index < 20; ++index) reloads[index] = {std::string(100, 'x'), "y"};
  documents_[kHistoryPath] = kavratest::historyOf(reloads);
  EXPECT_TRUE(hold());
  ASSERT_EQ(command({"OBJECT", "ENCODING", kHistoryKey}).text, "hashtable");
  EXPECT_FALSE(hold());
  EXPECT_EQ(store_->documents(""), documents_);
}

TEST_F(HoldingTest, TakesBackWhatIsNotThereAnyMore) {
  hold();
  documents_.erase(kHistoryPath);
  EXPECT_TRUE(hold());
  EXPECT_EQ(store_->documents(""), documents_);
  EXPECT_TRUE(store_->isAsPublished());
  EXPECT_FALSE(hold());
}

TEST_F(HoldingTest, LeavesOtherPathsAlone) {
  put("other", history({"x"}));
  hold();
  documents_.clear();
  hold();
  EXPECT_THAT(store_->documents(""), ElementsAre(Key("other")));
}

TEST_F(HoldingTest, PublishesAgainWhateverWasLostOrChanged) {
  const std::vector<Command> damages = {
      {"FLUSHALL"},
      {"DEL", kEpochKey},
      {"DEL", kLogKey},
      {"DEL", kHistoryKey},
      {"HDEL", kHistoryKey, "0:n"},
      {"HSET", kHistoryKey, "0:0:d", "two"},
      {"SET", kEpochKey, "another"},
      {"SET", kHistoryKey, "x"},
  };
  hold();
  for (const Command& damage : damages) {
    ASSERT_FALSE(command(damage).isError()) << damage[0];
    EXPECT_TRUE(hold()) << damage[0];
    EXPECT_EQ(store_->documents(""), documents_) << damage[0];
    EXPECT_FALSE(hold()) << damage[0];
  }
}

TEST_F(HoldingTest, SeesInAShortLookWhateverWasLostDamagedOrAnnounced) {
  const std::string mark = markKeyOf(publication().claim);
  const std::vector<Command> damages = {
      {"FLUSHALL"},
      {"DEL", kEpochKey},
      {"SET", kEpochKey, "another"},
      {"DEL", kLogKey},
      {"XADD", kLogKey, "*", "k", kHistoryKey},
      {"DEL", kIndexKey},
      {"HDEL", kIndexKey, kHistoryPath},
      {"SET", kIndexKey, "x"},
      {"DEL", kHistoryKey},
      {"SET", kHistoryKey, "x"},
      {"HDEL", kHistoryKey, kCheckField},
      {"HSET", kHistoryKey, kCheckField, "0123456789abcdef"},
      {"DEL", kOwnersKey},
      {"SET", kOwnersKey, "x"},
      {"DEL", mark},
      {"SET", mark, "x"},
      {"HSET", mark, "x", "y"},
  };
  EXPECT_FALSE(store_->isAsPublished());
  hold();
  for (const Command& damage : damages) {
    SCOPED_TRACE(testing::PrintToString(damage));
    EXPECT_TRUE(store_->isAsPublished());
    if (damage[0] == "HSET" && damage[1] == mark) command({"DEL", mark});
    ASSERT_FALSE(command(damage).isError());
    EXPECT_FALSE(store_->isAsPublished());
    hold();
    EXPECT_EQ(store_->documents(""), documents_);
    EXPECT_EQ(command({"HLEN", kIndexKey}).integer, 2);
    EXPECT_EQ(command({"HLEN", kOwnersKey}).integer, 1);
    EXPECT_EQ(command({"GET", mark}).text, markOf(publication().claim));
  }
}

TEST_F(HoldingTest, SeesInAShortLookThatAnEmptyDocumentIsGone) {
  documents_[kHistoryPath] = kavratest::historyOf({});
  hold();
  EXPECT_TRUE(store_->isAsPublished());
  command({"DEL", kHistoryKey});
  EXPECT_FALSE(store_->isAsPublished());
  EXPECT_TRUE(hold());
  EXPECT_EQ(store_->documents(""), documents_);
}

TEST_F(HoldingTest, FindsDamageBesideTheCheckInTheWholeAlone) {
  hold();
  command({"HSET", kHistoryKey, "0:0:d", "two"});
  EXPECT_TRUE(store_->isAsPublished());
  EXPECT_TRUE(hold());
  EXPECT_EQ(store_->documents(""), documents_);
}

TEST_F(HoldingTest, PublishesAChangeOverWhatItKnowsWithoutReadingIt) {
  const auto reads = [&] {
    const std::string stats = command({"INFO", "commandstats"}).text;
    const std::size_t begin = stats.find("cmdstat_hgetall:calls=");
    return begin == std::string::npos ? 0 : std::stoi(stats.substr(begin + 22));
  };
  hold();
  const int before = reads();
  documents_[kHistoryPath] = history({"two"});
  EXPECT_TRUE(hold());
  documents_.erase(kRedundancyPath);
  EXPECT_TRUE(hold());
  EXPECT_EQ(reads(), before);
  EXPECT_EQ(store_->documents(""), documents_);
  EXPECT_TRUE(store_->isAsPublished());
}

TEST_F(HoldingTest, ReadsTheWholeBeforeAChangeWhereALookFindsThatSomethingHappened) {
  const std::vector<Command> damages = {
      {"DEL", keyOf(kRedundancyPath)},
      {"HSET", keyOf(kRedundancyPath), kCheckField, "0123456789abcdef"},
      {"HDEL", kIndexKey, kRedundancyPath},
      {"XADD", kLogKey, "*", "k", keyOf(kRedundancyPath)},
      {"FLUSHALL"},
  };
  hold();
  for (std::size_t i = 0; i < damages.size(); ++i) {
    command(damages[i]);
    documents_[kHistoryPath] = history({fmt::format("cause {}", i)});
    EXPECT_TRUE(hold()) << damages[i][0];
    EXPECT_EQ(store_->documents(""), documents_) << damages[i][0];
    EXPECT_EQ(command({"HLEN", kIndexKey}).integer, 2) << damages[i][0];
  }
}

TEST_F(HoldingTest, ReadsTheWholeBeforeAChangeWhereItHasNotForHalfAMinute) {
  const auto clock = Qel::make<support::ManualClock>();
  const auto store = Qel::make<Store>(server_.options(), clock);
  store->publicationIs(publication());
  command({"HSET", keyOf(kRedundancyPath), "protocol", "1"});
  documents_[kHistoryPath] = history({"two"});
  EXPECT_TRUE(store->publicationIs(publication()));
  EXPECT_NE(store_->documents(""), documents_);
  clock->advance(30.0);
  documents_[kHistoryPath] = history({"three"});
  EXPECT_TRUE(store->publicationIs(publication()));
  EXPECT_EQ(store_->documents(""), documents_);
  // Nobody knows how long ago it was by a clock that was set back.
  command({"HSET", keyOf(kRedundancyPath), "protocol", "1"});
  clock->advance(-1.0);
  documents_[kHistoryPath] = history({"four"});
  EXPECT_TRUE(store->publicationIs(publication()));
  EXPECT_EQ(store_->documents(""), documents_);
}

TEST_F(HoldingTest, TakesBackBesideAChangeWhatWasSparedUntilThen) {
  put(kHistoryPath, history({"old"}));
  documents_.erase(kHistoryPath);
  Kavra::Store::Publication sparing = publication();
  sparing.spared = {kHistoryPath};
  store_->publicationIs(sparing);
  documents_[kRedundancyPath] = redundancy(1, true);
  EXPECT_TRUE(hold());
  EXPECT_EQ(store_->documents(""), documents_);
}

TEST_F(HoldingTest, TakesBackBesideAChangeWhatItsClaimHasNewly) {
  put(kHistoryPath, history({"old"}));
  documents_.erase(kHistoryPath);
  store_->publicationIs(kavratest::publicationOf({kRedundancyPath}, documents_));
  documents_[kRedundancyPath] = redundancy(1, true);
  EXPECT_TRUE(hold());
  EXPECT_EQ(store_->documents(""), documents_);
}

TEST_F(HoldingTest, LooksForWhatItFindsWhereSomebodyElsePublishedTheSame) {
  hold();
  const auto other = Qel::make<Store>(server_.options(), Qel::make<support::ManualClock>());
  other->forceIs(true);
  other->documentIs(kHistoryPath, history({"two"}));
  documents_[kHistoryPath] = history({"two"});
  EXPECT_FALSE(hold());
  EXPECT_TRUE(store_->isAsPublished());
}

TEST_F(HoldingTest, LooksOverOneConnectionAndWritesNothing) {
  const auto connections = [&] {
    const std::string stats = command({"INFO", "stats"}).text;
    return std::stoi(stats.substr(stats.find("total_connections_received:") + 27));
  };
  hold();
  const int before = connections();
  for (int look = 0; look < 10; ++look) EXPECT_TRUE(store_->isAsPublished());
  EXPECT_FALSE(hold());
  EXPECT_EQ(connections(), before + 1);
  EXPECT_EQ(command({"XLEN", kLogKey}).integer, 1);
}

TEST_F(HoldingTest, LooksAtAServerThatHasNoMemoryLeft) {
  hold();
  command({"CONFIG", "SET", "maxmemory", "1"});
  EXPECT_TRUE(store_->isAsPublished());
  EXPECT_FALSE(hold());
  command({"CONFIG", "SET", "maxmemory", "0"});
}

TEST_F(HoldingTest, GoesOnWhereItsConnectionWasClosed) {
  hold();
  command({"CLIENT", "KILL", "TYPE", "normal"});
  EXPECT_FALSE(store_->isAsPublished());
  EXPECT_FALSE(hold());
  command({"CLIENT", "KILL", "TYPE", "normal"});
  documents_.erase(kRedundancyPath);
  EXPECT_TRUE(hold());
  EXPECT_EQ(store_->documents(""), documents_);
}

// Two publishers, and somebody who edits.
class OwnersTest : public StoreTest {
 protected:
  Qel::Ptr<Store> open() const { return Qel::make<Store>(server_.options(), clock_); }
  // What is wrong with an edit of the redundancy status, or "nothing".
  std::string problemOfEdit(U32 protocol) {
    return support::problemOf<OwnedException>(
        [&] { put(kRedundancyPath, redundancy(protocol, true)); });
  }
  static Kavra::Store::Publication of(const char* file, const std::set<Qel::String>& places) {
    return kavratest::publicationOf(places, {{kRedundancyPath, redundancy(3, true)}}, file);
  }
  static constexpr char kRefusal[] =
      "cell/2/redundancy/status belongs to the publisher of /one on host";

  const Qel::Ptr<Store> one_ = open();
  const Qel::Ptr<Store> two_ = open();
};

TEST_F(OwnersTest, RefuseEditsOfWhatALivingPublisherOwns) {
  for (const char* place : {"cell/2/", "cell/", kRedundancyPath}) {
    one_->publicationIs(of("/one", {place}));
    EXPECT_EQ(problemOfEdit(5), kRefusal) << place;
    EXPECT_EQ(store_->documents("").at(kRedundancyPath), redundancy(3, true));
    one_->claimDel();
  }
  EXPECT_EQ(problemOfEdit(5), "nothing");
  EXPECT_EQ(store_->documents("").at(kRedundancyPath), redundancy(5, true));
}

TEST_F(OwnersTest, LetEditsElsewherePass) {
  one_->publicationIs(of("/one", {"cell/2/"}));
  put("cell/20/a", history({"one"}));
  put("cell/2", history({"one"}));
  EXPECT_THAT(store_->documents(""),
              ElementsAre(Key("cell/2"), Key(kRedundancyPath), Key("cell/20/a")));
}

TEST_F(OwnersTest, LetAForcedEditPass) {
  one_->publicationIs(of("/one", {"cell/2/"}));
  store_->forceIs(true);
  EXPECT_EQ(problemOfEdit(5), "nothing");
  EXPECT_FALSE(one_->isAsPublished());
  EXPECT_TRUE(one_->publicationIs(of("/one", {"cell/2/"})));
}

TEST_F(OwnersTest, LetNoEditSlipInWhileAClaimIsMade) {
  bool isFirst = true;
  const auto edit = [&](Kavra::Store::Documents& documents) {
    // The claim alone: what is published is as it was.
    if (std::exchange(isFirst, false)) {
      one_->publicationIs(kavratest::publicationOf({"cell/2/"}, {}, "/one"));
    }
    documents.insert_or_assign(kRedundancyPath, redundancy(5, true));
  };
  EXPECT_EQ(support::problemOf<OwnedException>([&] { store_->update({kRedundancyPath}, edit); }),
            kRefusal);
  EXPECT_THAT(store_->documents(""), IsEmpty());
}

TEST_F(OwnersTest, AreNoMoreWhenTheirMarkExpires) {
  const auto publication = of("/one", {"cell/2/"});
  one_->publicationIs(publication);
  const std::string mark = markKeyOf(publication.claim);
  command({"PEXPIRE", mark, "1000"});
  EXPECT_TRUE(one_->isAsPublished());
  EXPECT_GT(command({"PTTL", mark}).integer, 1000);
  EXPECT_LE(command({"PTTL", mark}).integer, 5000);
  command({"DEL", mark});
  EXPECT_EQ(problemOfEdit(5), "nothing");
}

TEST_F(OwnersTest, KeepASecondPublisherOutAndTellItOfTheFirst) {
  one_->publicationIs(of("/one", {"cell/2/"}));
  for (const char* place : {"cell/", "cell/2/", "cell/2/redundancy/", kRedundancyPath}) {
    EXPECT_EQ(support::problemOf<OwnedException>(
                  [&] { two_->publicationIs(kavratest::publicationOf({place}, {}, "/two")); }),
              std::string(place) + " belongs to the publisher of /one on host");
  }
  EXPECT_TRUE(one_->isAsPublished());
  two_->publicationIs(kavratest::publicationOf({"cell/20/"}, {}, "/two"));
  EXPECT_TRUE(one_->isAsPublished());
}

TEST_F(OwnersTest, AreFollowedByTheNext) {
  one_->publicationIs(of("/one", {"cell/2/"}));
  one_->claimDel();
  two_->publicationIs(kavratest::publicationOf({"cell/2/"}, {}, "/two"));
  EXPECT_THAT(store_->documents(""), IsEmpty());
  EXPECT_FALSE(one_->isAsPublished());
  EXPECT_EQ(support::problemOf<OwnedException>([&] { one_->publicationIs(of("/one", {"cell/"})); }),
            "cell/ belongs to the publisher of /two on host");
  EXPECT_THAT(store_->documents(""), IsEmpty());
}

TEST_F(OwnersTest, TakeOverFromTheirFormerSelf) {
  one_->publicationIs(of("/one", {"cell/2/"}));
  EXPECT_TRUE(two_->publicationIs(of("/one", {"cell/2/"})));
  EXPECT_EQ(problemOfEdit(5), kRefusal);
}

TEST_F(OwnersTest, AddToWhatTheyOwn) {
  one_->publicationIs(of("/one", {kRedundancyPath}));
  one_->publicationIs(of("/one", {kRedundancyPath, kHistoryPath}));
  EXPECT_EQ(support::problemOf<OwnedException>([&] { put(kHistoryPath, history({"x"})); }),
            std::string(kHistoryPath) + " belongs to the publisher of /one on host");
  EXPECT_EQ(command({"HLEN", kOwnersKey}).integer, 1);
}

TEST_F(OwnersTest, MayPublishPartsOfOneFile) {
  one_->publicationIs(of("/one", {"cell/2/"}));
  two_->publicationIs(kavratest::publicationOf({"cell/1/"}, {}, "/one"));
  EXPECT_TRUE(one_->isAsPublished());
  EXPECT_TRUE(two_->isAsPublished());
  EXPECT_EQ(problemOfEdit(5), kRefusal);
}

TEST_F(OwnersTest, AreForgottenWithTheirMarkByTheNextClaim) {
  one_->publicationIs(of("/one", {"cell/2/"}));
  command({"DEL", markKeyOf(of("/one", {"cell/2/"}).claim)});
  two_->publicationIs(of("/two", {"cell/2/"}));
  EXPECT_EQ(command({"HLEN", kOwnersKey}).integer, 1);
}

TEST_F(OwnersTest, AreNotGuessedAtWhereTheirNamesCannotBeRead) {
  command({"SET", kOwnersKey, "x"});
  EXPECT_THAT(problemOf([&] { put(kRedundancyPath, redundancy(5, true)); }),
              HasSubstr(std::string("key ") + kOwnersKey + ": an error: WRONGTYPE"));
  store_->forceIs(true);
  put(kRedundancyPath, redundancy(5, true));
}

TEST_F(HoldingTest, BeginsANewEpochOnAServerThatWentBack) {
  hold();
  const std::string first = epoch();
  command({"DEL", kLogKey});
  EXPECT_TRUE(hold());
  EXPECT_NE(epoch(), first);
}

}  // namespace
}  // namespace Kavra::Redis
