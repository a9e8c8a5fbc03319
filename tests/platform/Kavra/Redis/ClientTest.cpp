#include "Kavra/Redis/Client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "Kavra/FileDescriptor.h"
#include "Kavra/Redis/Address.h"
#include "Kavra/Store.h"
#include "Qel/ActivityManager.h"
#include "Qel/Failure.h"
#include "platform/Kavra/DatabaseDirectory.h"
#include "platform/Kavra/Redis/NameService.h"
#include "platform/Kavra/Redis/ServerProcess.h"
#include "support/NoMoreDescriptors.h"
#include "support/OpenDescriptors.h"

namespace Kavra::Redis {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// Waits for one client, and answers each piece that comes with the next text; then it closes.
class CannedServer {
 public:
  explicit CannedServer(std::vector<std::string> answers)
      : address_(Address::ofPath((directory_.path() / "canned.sock").string())),
        listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const SocketAddress socket = address_.resolve().front();
    EXPECT_EQ(::bind(listener_.fd(), socket.address(), socket.size), 0);
    EXPECT_EQ(::listen(listener_.fd(), 1), 0);
    thread_ = std::thread([this, answers = std::move(answers)] { serve(answers); });
  }
  CannedServer(const CannedServer&) = delete;
  CannedServer& operator=(const CannedServer&) = delete;
  ~CannedServer() { thread_.join(); }

  ConnectionOptions options() const { return {address_, {}}; }
  const std::string& name() const { return address_.text(); }

 private:
  void serve(const std::vector<std::string>& answers) const {
    const FileDescriptor client(::accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC));
    char piece[4096];
    for (const std::string& answer : answers) {
      if (::recv(client.fd(), piece, sizeof piece, 0) <= 0) return;
      if (::send(client.fd(), answer.data(), answer.size(), MSG_NOSIGNAL) < 0) return;
    }
  }

  const kavratest::DatabaseDirectory directory_;
  const Address address_;
  const FileDescriptor listener_;
  std::thread thread_;
};

std::string problemOf(const CannedServer& server, const std::function<void(Client&)>& work) {
  try {
    Client client(server.options());
    work(client);
    return "nothing";
  } catch (const StoreException& error) {
    return error.what();
  }
}

void look(Client& client) { (void)client.transaction({{"GET", "kavra:epoch"}}); }

TEST(ClientTest, TakesTheOutcomeOfATransaction) {
  const CannedServer server({"+PONG\r\n", "+OK\r\n+QUEUED\r\n*1\r\n$5\r\nepoch\r\n"});
  EXPECT_EQ(problemOf(server,
                      [](Client& client) {
                        const auto outcome = client.transaction({{"GET", "kavra:epoch"}});
                        EXPECT_EQ(outcome.value().elements.at(0).text, "epoch");
                      }),
            "nothing");
}

TEST(ClientTest, NamesTheServerThatDiscardsATransaction) {
  const CannedServer server({"+PONG\r\n", "+OK\r\n+QUEUED\r\n*-1\r\n"});
  EXPECT_EQ(problemOf(server, look), server.name() + ": the transaction was discarded");
}

TEST(ClientTest, TakesNoAnswerThatNobodyAskedForAsTheNext) {
  const CannedServer server({"+PONG\r\n*1\r\n$5\r\nother\r\n", "+OK\r\n+QUEUED\r\n"});
  EXPECT_EQ(problemOf(server, look), server.name() + ": an answer that nobody asked for");
}

TEST(ClientTest, NamesTheServerThatRefusesTheLogin) {
  const CannedServer server({"-NOAUTH Authentication required.\r\n"});
  EXPECT_EQ(problemOf(server, look), server.name() + ": NOAUTH Authentication required.");
}

TEST(ClientTest, NamesTheServerThatAnswersOtherwise) {
  for (const std::string answer :
       {"+OK\r\n+QUEUED\r\n*0\r\n", "+OK\r\n+QUEUED\r\n*2\r\n:1\r\n:2\r\n",
        "+OK\r\n+QUEUED\r\n:1\r\n", "+OK\r\n+QUEUED\r\n+OK\r\n", "%1\r\n+a\r\n:1\r\n"}) {
    const CannedServer server({"+PONG\r\n", answer});
    EXPECT_THAT(problemOf(server, look), StartsWith(server.name() + ": ")) << answer;
  }
}

TEST(ClientTest, TellsThatTheServerClosedTheConnection) {
  const CannedServer server({"+PONG\r\n", "+OK\r\n"});
  EXPECT_THAT(problemOf(server, look), HasSubstr("closed"));
}

TEST(ClientTest, GivesUpAnAnswerThatStopsInTheMiddle) {
  const CannedServer server({"+PONG\r\n", "+OK\r\n+QUE", "never sent"});
  EXPECT_EQ(problemOf(server, look), server.name() + ": an answer stopped in the middle for 1 s");
}

TEST(ClientTest, PassesOnWhyTheServerClosesTheConnection) {
  const CannedServer server({"+PONG\r\n", "+OK\r\n-ERR max number of clients reached\r\n"});
  EXPECT_EQ(problemOf(server, look), server.name() + ": ERR max number of clients reached");
}

TEST(ClientTest, IsOfNoMoreUseAfterItsLoss) {
  const CannedServer server({"+PONG\r\n", "+OK\r\n"});
  EXPECT_EQ(problemOf(server,
                      [](Client& client) {
                        EXPECT_THROW(look(client), StoreException);
                        look(client);
                      }),
            server.name() + ": the server closed the connection");
}

TEST(ClientTest, RunsNoPutOffWorkWhileItWaits) {
  bool ran = false;
  const auto work = Qel::activityManager()->activityIs([&] { ran = true; });
  const CannedServer server({"+PONG\r\n", "+OK\r\n+QUEUED\r\n*1\r\n$5\r\nepoch\r\n"});
  EXPECT_EQ(problemOf(server, look), "nothing");
  EXPECT_FALSE(ran);
}

TEST(ClientTest, LeavesNoDescriptorOpen) {
  const std::ptrdiff_t before = support::openDescriptors();
  {
    const CannedServer server({"+PONG\r\n"});
    EXPECT_NE(problemOf(server, look), "nothing");
  }
  EXPECT_THROW(Client({Address::ofPath("/nowhere"), {}}), StoreException);
  EXPECT_EQ(support::openDescriptors(), before);
}

TEST(ClientTest, NamesTheServerWhereNoDescriptorIsLeft) {
  // A sanitizer that meets a type for the first time needs descriptors to look at it.
  EXPECT_THROW(Client({Address::ofPath("/nowhere"), {}}), StoreException);
  EXPECT_NE(Qel::failureOf([] { throw std::system_error(std::error_code()); }), std::nullopt);
  std::string problem;
  try {
    const support::NoMoreDescriptors none;
    const Client client({Address::ofPath("/nowhere"), {}});
  } catch (const StoreException& error) {
    problem = error.what();
  }
  EXPECT_THAT(problem, StartsWith("redis+unix:/nowhere: "));
  EXPECT_THAT(problem, HasSubstr("Too many open files"));
}

TEST(ClientTest, TriesEachAddressOfAName) {
  const std::string port = kavratest::freePort();
  const kavratest::ServerProcess server({"--port", port, "--bind", "127.0.0.1"});
  for (const char* name : {kavratest::kRefusingFirst, kavratest::kRefusingLast}) {
    Client client({Address::ofHost(name + (":" + port)), {}});
    EXPECT_TRUE(client.request({{"PING"}}).front().isStatus("PONG")) << name;
  }
  EXPECT_THROW(
      Client({Address::ofHost(kavratest::kRefusingFirst + (":" + kavratest::freePort())), {}}),
      StoreException);
}

}  // namespace
}  // namespace Kavra::Redis
