#include "Kavra/StoreUrl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>

#include "Kavra/File/Feed.h"
#include "Kavra/File/Store.h"
#include "Kavra/Redis/Feed.h"
#include "Kavra/Redis/Store.h"
#include "Qel/PollEventLoop.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "support/LiveObjects.h"
#include "support/ProblemOf.h"
#include "support/TraceRecorder.h"

namespace Kavra {
namespace {

using testing::HasSubstr;

std::string problemOf(const std::function<void()>& work) {
  return support::problemOf<StoreException>(work);
}

class StoreUrlTest : public support::LiveObjectsTest {
 protected:
  const kavratest::DatabaseDirectory directory_;
  Qel::PollEventLoop loop_;
  const Qel::Ptr<Qel::Clock const> clock_ = Qel::make<Qel::SystemClock>();
};

TEST_F(StoreUrlTest, OfAFileOpensTheEmbeddedStore) {
  const StoreUrl url(directory_.url());
  EXPECT_EQ(url.text(), directory_.url());
  EXPECT_TRUE(Qel::ptrCast<File::Store>(url.store(clock_)));
  EXPECT_TRUE(Qel::ptrCast<File::Feed>(url.feed(loop_, clock_)));
}

TEST_F(StoreUrlTest, OfAServerOpensTheStoreOnRedis) {
  for (const char* text : {"redis://localhost", "redis://[::1]:6379", "redis+unix:/run/x"}) {
    const StoreUrl url(text);
    EXPECT_TRUE(Qel::ptrCast<Redis::Store>(url.store(clock_))) << text;
    EXPECT_TRUE(Qel::ptrCast<Redis::Feed>(url.feed(loop_, clock_))) << text;
  }
}

TEST_F(StoreUrlTest, TellsThatAServerBeyondThisComputerIsNotEncrypted) {
  const support::TraceRecorder trace;
  const auto feed = StoreUrl("redis://192.0.2.7:7000").feed(loop_, clock_);
  EXPECT_THAT(trace.lines(),
              testing::ElementsAre("Kavra 0: redis://192.0.2.7:7000: not encrypted: without a "
                                   "tunnel, user, password and documents can be read on the way"));
}

TEST_F(StoreUrlTest, SaysNothingOfWhatStaysOnThisComputer) {
  const support::TraceRecorder trace;
  for (const std::string& text :
       {std::string("redis://127.0.0.1"), std::string("redis+unix:/run/x"), directory_.url()}) {
    const auto feed = StoreUrl(text).feed(loop_, clock_);
  }
  EXPECT_THAT(trace.lines(), testing::IsEmpty());
}

TEST_F(StoreUrlTest, RefusesAUserForAFile) {
  EXPECT_EQ(problemOf([] { StoreUrl("file:a", "/etc/user"); }),
            "'file:a' is a file: it takes no user and password (/etc/user)");
}

TEST_F(StoreUrlTest, TellsWhatIsWrongWithAServersAddress) {
  for (const char* text : {"redis://h:0", "redis://h:65536", "redis://h:x", "redis://:6379",
                           "redis://[::1", "redis://[::1]6379", "redis://h:"}) {
    EXPECT_THAT(problemOf([&] { StoreUrl(text).store(clock_); }),
                HasSubstr("'" + std::string(text) + "' is not the address of a Redis server"));
  }
  const std::string tooLong = "redis+unix:/" + std::string(107, 'x');
  EXPECT_THAT(problemOf([&] { StoreUrl(tooLong).store(clock_); }), HasSubstr("1 to 107 octets"));
}

TEST_F(StoreUrlTest, ReadsTheUserAndThePasswordFromAFile) {
  const std::string file = (directory_.path() / "auth").string();
  directory_.write(file, "agent\nsecret\n");
  std::filesystem::permissions(file, std::filesystem::perms::owner_read);
  EXPECT_TRUE(StoreUrl("redis://localhost", file).store(clock_));
  EXPECT_THAT(problemOf([&] { StoreUrl("redis://localhost", file + "x").store(clock_); }),
              HasSubstr(file + "x: No such file"));
}

TEST_F(StoreUrlTest, OfAnythingElseIsRefused) {
  for (const char* text : {"", "file:", "kavra.json", "redis://", "redis+unix:", "redis:x",
                           "http://localhost", "FILE:x"}) {
    EXPECT_THAT(problemOf([&] { StoreUrl{text}; }),
                HasSubstr("'" + std::string(text) + "' is not the address of a state database"));
  }
}

TEST_F(StoreUrlTest, IsEqualWhenItsTextIs) {
  EXPECT_EQ(StoreUrl("file:a"), StoreUrl("file:a"));
  EXPECT_NE(StoreUrl("file:a"), StoreUrl("file:b"));
}

}  // namespace
}  // namespace Kavra
