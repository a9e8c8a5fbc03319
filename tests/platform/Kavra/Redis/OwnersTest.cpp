#include "Kavra/Redis/Owners.h"

#include <gtest/gtest.h>

#include <string>

#include "Kavra/Redis/Client.h"
#include "Kavra/Redis/MultiExec.h"
#include "Kavra/Store.h"
#include "platform/Kavra/Redis/ServerProcess.h"
#include "support/LiveObjects.h"
#include "support/ProblemOf.h"

namespace Kavra::Redis {
namespace {

using support::problemOf;

// What a claim means to those who publish and edit is told by StoreTest.cpp.
class ClaimOnServerTest : public support::LiveObjectsTest {
 protected:
  bool publishes() {
    const auto replies = client_.request(multiExec({{"SET", "kavra:x", "y"}}));
    return !replies.back().isNil();
  }

  kavratest::ServerProcess server_;
  Client client_{server_.options()};
  const Claim claim_{"host", "boot", "/one", {"cell/2/"}};
  const std::string mark_ = markKeyOf(claim_);
};

TEST_F(ClaimOnServerTest, LetsItsPublisherPublish) {
  needClaim(client_, claim_);
  watchClaim(client_, claim_);
  EXPECT_TRUE(publishes());
}

TEST_F(ClaimOnServerTest, KeepsItsPublisherFromPublishingOnceItIsLost) {
  needClaim(client_, claim_);
  server_.command({"DEL", mark_});
  EXPECT_EQ(problemOf<StoreException>([&] { watchClaim(client_, claim_); }),
            server_.url() + ": the mark of this publisher expired");
}

TEST_F(ClaimOnServerTest, KeepsItsPublisherFromPublishingWhereItIsLostInBetween) {
  needClaim(client_, claim_);
  watchClaim(client_, claim_);
  server_.command({"DEL", mark_});
  EXPECT_FALSE(publishes());
}

TEST_F(ClaimOnServerTest, LetsNothingBeClaimedWhileAnotherClaimIsMade) {
  const Owners seen(client_);
  Client other(server_.options());
  needClaim(other, {"host", "boot", "/two", {"cell/"}});
  EXPECT_FALSE(seen.claimIs(claim_));
}

TEST_F(ClaimOnServerTest, IsNoneWhereTheMarkIsNone) {
  server_.command({"HSET", kOwnersKey, "x", "1", "y", "1", "z", "1"});
  server_.command({"SET", "kavra:owner:x", "{"});
  server_.command({"SET", "kavra:owner:y", R"({"host": 5, "owns": [1, "cell/9/"]})"});
  server_.command({"HSET", "kavra:owner:z", "x", "y"});
  const Owners owners(client_);
  owners.needUnowned({"cell/2/a"});
  EXPECT_EQ(problemOf<OwnedException>([&] { owners.needUnowned({"cell/9/a"}); }),
            "cell/9/a belongs to the publisher of  on ");
}

TEST_F(ClaimOnServerTest, IsReadAsItWasMadeWhateverItsNames) {
  const Claim odd{"h\"\xff", "", "/with\nline", {"cell/2/", "a \"b\""}};
  needClaim(client_, odd);
  EXPECT_EQ(problemOf<OwnedException>([&] { Owners(client_).needUnowned({"a \"b\""}); }),
            "a \"b\" belongs to the publisher of /with\nline on h\"\xff");
}

}  // namespace
}  // namespace Kavra::Redis
