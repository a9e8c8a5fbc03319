#include "Qel/ServiceManager.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/ManualEventLoop.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A service manager that remembers what it was told, in order.
class ServiceManagerTest : public testing::Test {
 protected:
  ServiceManagerTest() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = "ServiceManagerTest." + std::to_string(::getpid());
    name.copy(address.sun_path + 1, sizeof address.sun_path - 1);  // abstract: no file
    const auto length = offsetof(sockaddr_un, sun_path) + 1 + name.size();
    EXPECT_EQ(::bind(socket_, reinterpret_cast<const sockaddr*>(&address),
                     static_cast<socklen_t>(length)),
              0);
    ::setenv("NOTIFY_SOCKET", ("@" + name).c_str(), 1);
  }
  ~ServiceManagerTest() override {
    ::unsetenv("NOTIFY_SOCKET");
    ::unsetenv("WATCHDOG_USEC");
    ::close(socket_);
  }

  static void wantsSignsWithin(const char* microseconds) {
    ::setenv("WATCHDOG_USEC", microseconds, 1);
  }
  std::vector<std::string> told() const {
    std::vector<std::string> all;
    std::array<char, 4096> text{};
    for (ssize_t size = 0; (size = ::recv(socket_, text.data(), text.size(), 0)) > 0;) {
      all.emplace_back(text.data(), static_cast<std::size_t>(size));
    }
    return all;
  }

  const int socket_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  support::ManualEventLoop loop_;
};

TEST_F(ServiceManagerTest, IsToldOfTheBeginningAndTheEnd) {
  {
    Qel::ServiceManager manager(loop_);
    EXPECT_THAT(told(), IsEmpty());
    manager.readyIs("serves\nREADY=0");
    EXPECT_THAT(told(), ElementsAre("READY=1\nSTATUS=serves\\nREADY=0"));
  }
  EXPECT_THAT(told(), ElementsAre("STOPPING=1"));
}

TEST_F(ServiceManagerTest, GetsSignsOfLifeTwiceInItsTimeAsLongAsTheLoopTurns) {
  wantsSignsWithin("10000000");
  const Qel::ServiceManager manager(loop_);
  EXPECT_THAT(told(), ElementsAre("WATCHDOG=1"));
  loop_.advance(4.9);
  EXPECT_THAT(told(), IsEmpty());
  loop_.advance(0.1);
  EXPECT_THAT(told(), ElementsAre("WATCHDOG=1"));
  loop_.advance(10);
  EXPECT_THAT(told(), ElementsAre("WATCHDOG=1", "WATCHDOG=1"));
}

TEST_F(ServiceManagerTest, GetsNoneThatItDoesNotWant) {
  const Qel::ServiceManager manager(loop_);
  EXPECT_EQ(loop_.timers(), 0U);
}

TEST_F(ServiceManagerTest, MayBeMissing) {
  ::unsetenv("NOTIFY_SOCKET");
  Qel::ServiceManager manager(loop_);
  manager.readyIs("serves");
  EXPECT_THAT(told(), IsEmpty());
}

}  // namespace
