#include "Kavra/Redis/ConnectionOptions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "Kavra/Store.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "support/TraceRecorder.h"

namespace Kavra::Redis {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class LoginTest : public testing::Test {
 protected:
  void write(const std::string& text, mode_t mode = 0600) const {
    directory_.write(file_, text);
    ::chmod(file_.c_str(), mode);
  }
  std::string problemOf(const std::string& text) const {
    write(text);
    try {
      Login::ofFile(file_);
      return "nothing";
    } catch (const StoreException& error) {
      return error.what();
    }
  }

  support::TraceRecorder log_;
  const kavratest::DatabaseDirectory directory_;
  const std::string file_ = (directory_.path() / "auth").string();
};

TEST_F(LoginTest, AreTwoLines) {
  for (const char* text : {"agent\nse cret", "agent\nse cret\n"}) {
    write(text);
    const Login credentials = Login::ofFile(file_);
    EXPECT_EQ(credentials.user, "agent");
    EXPECT_EQ(credentials.password, "se cret");
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(LoginTest, AreNotQuotedWhenTheFileIsWrong) {
  for (const char* text :
       {"", "secret", "secret\n", "agent\n\n", "\nsecret\n", "a\nsecret\nmore"}) {
    EXPECT_THAT(problemOf(text),
                AllOf(HasSubstr(file_ + ": expected two lines"), Not(HasSubstr("secret"))))
        << text;
  }
  EXPECT_THAT(problemOf(std::string(100000, 'x')), HasSubstr("too long"));
}

TEST_F(LoginTest, AreReportedWhenOthersMayReadThem) {
  write("agent\nsecret\n", 0644);
  Login::ofFile(file_);
  EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr(file_ + ": mode 644: others than its owner")));
}

TEST(ConnectionOptionsTest, IsAskedForAnAnswerAfterTheLogin) {
  const ConnectionOptions open{Address::ofHost("h"), {}};
  EXPECT_THAT(open.loginCommands(), ElementsAre(ElementsAre("PING")));
  const ConnectionOptions closed{Address::ofHost("h"), Login{"agent", "secret"}};
  EXPECT_THAT(closed.loginCommands(),
              ElementsAre(ElementsAre("AUTH", "agent", "secret"), ElementsAre("PING")));
}

}  // namespace
}  // namespace Kavra::Redis
