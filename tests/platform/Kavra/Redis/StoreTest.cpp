#include "Kavra/Redis/Store.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "Kavra/Redis/DocumentHash.h"
#include "Qel/Clock.h"
#include "platform/Kavra/Documents.h"
#include "platform/Kavra/Redis/ServerProcess.h"
#include "support/LiveObjects.h"
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
  bool hold() { return store_->documentsAre({kHistoryPath, kRedundancyPath}, documents_); }

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

TEST_F(HoldingTest, BeginsANewEpochOnAServerThatWentBack) {
  hold();
  const std::string first = epoch();
  command({"DEL", kLogKey});
  EXPECT_TRUE(hold());
  EXPECT_NE(epoch(), first);
}

}  // namespace
}  // namespace Kavra::Redis
