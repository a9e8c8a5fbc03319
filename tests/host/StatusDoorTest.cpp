#include "host/StatusDoor.h"

#include <gmock/gmock.h>
#include <sys/socket.h>

#include <filesystem>

#include "Kavra/FileContent.h"
#include "Kavra/SocketAddress.h"
#include "host/Errors.h"
#include "host/StatusText.h"
#include "support/ManualEventLoop.h"
#include "support/NoMoreDescriptors.h"

namespace Host {
namespace {

class StatusDoorTest : public testing::Test {
 protected:
  StatusDoorTest() { door_ = newDoor(); }

  std::unique_ptr<StatusDoor> newDoor() {
    return std::make_unique<StatusDoor>(path_, loop_, [this] { return text_; });
  }
  // Somebody who waits to be answered.
  Kavra::FileDescriptor newReader() const {
    Kavra::FileDescriptor reader(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto address = Kavra::unixAddressOf(path_).value();
    EXPECT_EQ(::connect(reader.fd(), address.address(), address.size), 0);
    return reader;
  }
  // The descriptor at which the door listens.
  int listening() const {
    int fd = 0;
    while (fd < 100 && !loop_.isReadWatched(fd)) ++fd;
    return fd;
  }
  static std::string read(const Kavra::FileDescriptor& reader) {
    return Kavra::readUpTo(reader, 2 * kMostStatusOctets).value_or("too much");
  }

  // Of the running test, since they run beside each other.
  const std::string path_ =
      std::string(testing::UnitTest::GetInstance()->current_test_info()->name()) + ".sock";
  support::ManualEventLoop loop_;
  std::string text_ = "all is well\n";
  std::unique_ptr<StatusDoor> door_;
};

TEST_F(StatusDoorTest, SendsTheLargestTextToWhoHasNotBegunToRead) {
  text_ = std::string(kMostStatusOctets, 'x');
  const auto reader = newReader();
  EXPECT_EQ(loop_.readable(listening()), 1U);
  text_ = "another";
  EXPECT_EQ(read(reader), std::string(kMostStatusOctets, 'x'));
}

TEST_F(StatusDoorTest, CaresNotForAReaderThatLeft) {
  newReader();
  EXPECT_EQ(loop_.readable(listening()), 1U);
  const auto reader = newReader();
  EXPECT_EQ(loop_.readable(listening()), 1U);
  EXPECT_EQ(read(reader), text_);
}

TEST_F(StatusDoorTest, PausesWhereThereIsNoDescriptorLeft) {
  const auto reader = newReader();
  const int fd = listening();
  {
    const support::NoMoreDescriptors none;
    EXPECT_EQ(loop_.readable(fd), 1U);
  }
  EXPECT_FALSE(loop_.isReadWatched(fd));
  EXPECT_EQ(loop_.timers(), 1U);
  loop_.advance(1.0);
  EXPECT_EQ(loop_.readable(fd), 1U);
  EXPECT_EQ(read(reader), text_);
}

TEST_F(StatusDoorTest, ListensAgainWhenTheLoopHasRoom) {
  const auto reader = newReader();
  const int fd = listening();
  {
    const support::NoMoreDescriptors none;
    loop_.readable(fd);
  }
  loop_.mostDescriptorsIs(0);
  loop_.advance(1.5);
  EXPECT_FALSE(loop_.isReadWatched(fd));
  loop_.mostDescriptorsIs(1);
  loop_.advance(1.0);
  EXPECT_EQ(loop_.readable(fd), 1U);
  EXPECT_EQ(read(reader), text_);
}

TEST_F(StatusDoorTest, TakesAwayItsOwnSocketAlone) {
  std::filesystem::remove(path_);
  const auto another = newDoor();
  door_ = nullptr;
  EXPECT_TRUE(std::filesystem::exists(path_));
}

TEST_F(StatusDoorTest, RefusesAPathThatIsTooLongForASocket) {
  Options options = readOptions({"--status-socket", std::string(108, 'x')});
  EXPECT_THROW(statusDoorOf(options, loop_, {}), StartError);
}

}  // namespace
}  // namespace Host
