#include "host/NotificationSink.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Kavra/FileDescriptor.h"
#include "host/Log.h"
#include "support/ManualEventLoop.h"

namespace Host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kInform = '\xa6';
constexpr char kTrap = '\xa7';
constexpr char kResponse = '\xa2';

// A manager that takes notifications of version 2c with the community "c".
class Receiver {
 public:
  Receiver() : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address_;
    EXPECT_EQ(::bind(socket_.fd(), generic(address_), size), 0);
    EXPECT_EQ(::getsockname(socket_.fd(), generic(address_), &size), 0);
  }

  std::string port() const { return std::to_string(ntohs(address_.sin_port)); }
  // The next message, as the letter of its kind and the description of its first cause: "T" for
  // coldStart, "Ifan" for an inform. "" where none waits.
  std::string next() {
    std::array<char, 2000> octets{};
    const ssize_t count =
        ::recvfrom(socket_.fd(), octets.data(), octets.size(), 0, generic(source_), &sourceSize_);
    if (count <= 0) return {};
    last_.assign(octets.data(), static_cast<std::size_t>(count));
    const char kind = last_.at(pdu());
    EXPECT_TRUE(kind == kInform || kind == kTrap);
    return (kind == kInform ? "I" : "T") + description();
  }
  // Answers the message that came last, which differs from its answer in nothing but the kind.
  void acknowledge() {
    last_.at(pdu()) = kResponse;
    EXPECT_EQ(::sendto(socket_.fd(), last_.data(), last_.size(), 0, generic(source_), sourceSize_),
              static_cast<ssize_t>(last_.size()));
  }

 private:
  static sockaddr* generic(sockaddr_in& address) { return reinterpret_cast<sockaddr*>(&address); }
  // Behind the version and the community.
  std::size_t pdu() const { return last_.find(std::string("\x04\x01") + 'c') + 3; }
  // The tests' descriptions are in angle brackets, which may stand in the request's number, too.
  std::string description() const {
    const auto sysUpTime = last_.find("\x2b\x06\x01\x02\x01\x01\x03");
    const auto begin = last_.find('<', sysUpTime);
    return begin == last_.npos ? "" : last_.substr(begin + 1, last_.find('>', begin) - begin - 1);
  }

  const Kavra::FileDescriptor socket_;
  sockaddr_in address_{};
  sockaddr_in source_{};
  socklen_t sourceSize_ = sizeof source_;
  std::string last_;
};

Notification causes(U32 unit, const std::string& description) {
  ReloadCauses causes;
  causes.unit = unit;
  causes.count = 1;
  causes.first = {{"<" + description + ">", 1}};
  return {causes, 0};
}

class NotificationSinkTest : public testing::Test {
 protected:
  NotificationSinkTest() {
    processLog().sinkIs([this](int, std::string_view text) { said_.emplace_back(text); });
  }
  ~NotificationSinkTest() override { processLog().sinkIs({}); }

  void newSink(const std::string& options, const std::string& host = "127.0.0.1") {
    sink_ = std::make_unique<NotificationSink>(
        sinkOfSession(options + " -v 2c -c c udp:" + host + ":" + receiver_.port()), loop_,
        [this](const Notification& told) {
          delivered_.push_back(told.causes ? told.causes->first.front().description : "coldStart");
        });
  }
  // An inform that is sent once, and given up after a moment.
  void newImpatientSink() { newSink("-Ci -r 0 -t 0.005"); }

  // Lets happen what does without time passing on the loop, until `done` holds.
  void until(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!done()) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "not within 20 s";
      readSessions();
      for (int fd = 0; fd < 256; ++fd) {
        pollfd one{fd, POLLIN, 0};
        if (loop_.isReadWatched(fd) && ::poll(&one, 1, 1) == 1) loop_.readable(fd);
      }
      loop_.settle();
    }
  }
  std::string received() {
    std::string message;
    until([&] { return !(message = receiver_.next()).empty(); });
    return message;
  }
  static void readSessions() {
    fd_set readable;
    FD_ZERO(&readable);
    int most = 0;
    int block = 0;
    timeval timeout{0, 1000};
    snmp_select_info(&most, &readable, &timeout, &block);
    timeout = {0, 1000};
    if (::select(most, &readable, nullptr, nullptr, &timeout) > 0) snmp_read(&readable);
    snmp_timeout();
  }

  std::vector<std::string> said_;
  std::vector<std::string> delivered_;
  Receiver receiver_;
  support::ManualEventLoop loop_;
  std::unique_ptr<NotificationSink> sink_;
};

TEST_F(NotificationSinkTest, SendsTrapsAtOnceAndForgetsThem) {
  newSink("");
  sink_->send({{}, 0});
  sink_->send(causes(0, "fan"));
  EXPECT_EQ(receiver_.next(), "T");
  EXPECT_EQ(receiver_.next(), "Tfan");
  EXPECT_THAT(delivered_, ElementsAre("coldStart", "<fan>"));
  EXPECT_EQ(sink_->kept(), 0U);
  EXPECT_EQ(sink_->counts().sent, 2U);
  EXPECT_THAT(said_, IsEmpty());
}

TEST_F(NotificationSinkTest, SendsInformsOneAfterTheOtherAsTheyAreAcknowledged) {
  newSink("-Ci");
  sink_->send({{}, 0});
  sink_->send(causes(0, "fan"));
  EXPECT_EQ(receiver_.next(), "I");
  EXPECT_EQ(receiver_.next(), "");
  EXPECT_THAT(delivered_, IsEmpty());
  receiver_.acknowledge();
  EXPECT_EQ(received(), "Ifan");
  EXPECT_THAT(delivered_, ElementsAre("coldStart"));
  receiver_.acknowledge();
  until([this] { return delivered_.size() == 2; });
  EXPECT_EQ(sink_->counts().acknowledged, 2U);
  EXPECT_EQ(sink_->kept(), 0U);
}

TEST_F(NotificationSinkTest, TakesAnAnswerForTheInformThatItAnswersThoughAnotherIsSentMeanwhile) {
  newSink("-Ci");
  sink_->send(causes(0, "fan"));
  EXPECT_EQ(received(), "Ifan");
  receiver_.acknowledge();
  readSessions();  // the answer is in, what follows from it is still to come
  sink_->send(causes(1, "power"));
  EXPECT_EQ(received(), "Ipower");
  EXPECT_THAT(delivered_, ElementsAre("<fan>"));
  receiver_.acknowledge();
  until([this] { return delivered_.size() == 2; });
  EXPECT_THAT(delivered_, ElementsAre("<fan>", "<power>"));
}

TEST_F(NotificationSinkTest, KeepsWhatItGaveUpThoughMoreIsToBeSentMeanwhile) {
  newImpatientSink();
  sink_->send(causes(0, "fan"));
  EXPECT_EQ(received(), "Ifan");
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (loop_.timers() == 0 && std::chrono::steady_clock::now() < deadline) readSessions();
  sink_->send(causes(1, "power"));
  until([this] { return sink_->counts().givenUp == 1; });
  EXPECT_EQ(sink_->kept(), 2U);
}

TEST_F(NotificationSinkTest, RepeatsAnInformUntilItIsAcknowledged) {
  newSink("-Ci -r 5 -t 0.01");
  sink_->send(causes(0, "fan"));
  for (int lost = 0; lost < 4; ++lost) EXPECT_EQ(received(), "Ifan");
  receiver_.acknowledge();
  until([this] { return !delivered_.empty(); });
  EXPECT_EQ(sink_->counts().sent, 1U);
  EXPECT_THAT(said_, IsEmpty());
}

TEST_F(NotificationSinkTest, KeepsOfWhatWaitsTheLastAboutEachUnit) {
  newSink("-Ci");
  sink_->send(causes(1, "first"));
  for (int number = 0; number < 100; ++number) {
    sink_->send(causes(0, std::to_string(number)));
    sink_->send(causes(1, std::to_string(number)));
  }
  EXPECT_EQ(sink_->kept(), 3U);
  EXPECT_EQ(received(), "Ifirst");
  receiver_.acknowledge();
  EXPECT_EQ(received(), "I99");
  receiver_.acknowledge();
  EXPECT_EQ(received(), "I99");
}

TEST_F(NotificationSinkTest, TriesAgainWhatItGaveUpAfterAPause) {
  newImpatientSink();
  sink_->send(causes(0, "fan"));
  EXPECT_EQ(received(), "Ifan");
  until([this] { return sink_->counts().givenUp == 1; });
  EXPECT_EQ(sink_->problem(), "no answer");
  EXPECT_EQ(receiver_.next(), "");
  loop_.advance(1);
  EXPECT_EQ(received(), "Ifan");
  receiver_.acknowledge();
  until([this] { return !delivered_.empty() || sink_->counts().givenUp == 2; });
}

TEST_F(NotificationSinkTest, TellsOnceThatASinkIsSilentAndThatItIsNotAnyLonger) {
  newImpatientSink();
  sink_->send(causes(0, "fan"));
  for (std::uint64_t failures = 1; failures <= 3; ++failures) {
    until([&] { return sink_->counts().givenUp == failures; });
    loop_.advance(loop_.untilNextTimer());
  }
  const std::string target = "udp:127.0.0.1:" + receiver_.port();
  EXPECT_THAT(said_,
              ElementsAre("notifications do not reach " + target + ": no answer; trying again"));
  until([this] {
    if (!receiver_.next().empty()) receiver_.acknowledge();
    if (loop_.untilNextTimer() < 100) loop_.advance(loop_.untilNextTimer());
    return !delivered_.empty();
  });
  EXPECT_EQ(said_.back(), "notifications reach " + target + " again");
  EXPECT_EQ(said_.size(), 2U);
}

TEST_F(NotificationSinkTest, TriesAgainLessAndLessOften) {
  newImpatientSink();
  sink_->send(causes(0, "fan"));
  double longest = 0;
  for (std::uint64_t failures = 1; failures <= 10; ++failures) {
    until([&] { return sink_->counts().givenUp == failures; });
    longest = loop_.untilNextTimer();
    loop_.advance(longest);
  }
  EXPECT_GE(longest, 30);
  EXPECT_LE(longest, 60);
}

TEST_F(NotificationSinkTest, TellsTheLastStateAfterASilence) {
  newImpatientSink();
  sink_->send(causes(0, "first"));
  until([this] { return sink_->counts().givenUp == 1; });
  sink_->send(causes(0, "second"));
  while (!receiver_.next().empty()) {
  }
  loop_.advance(1);
  EXPECT_EQ(received(), "Isecond");
}

TEST_F(NotificationSinkTest, KeepsALaterStateRatherThanWhatItGaveUp) {
  newImpatientSink();
  sink_->send(causes(0, "first"));
  sink_->send(causes(0, "second"));
  until([this] { return sink_->counts().givenUp == 1; });
  EXPECT_EQ(sink_->kept(), 1U);
  while (!receiver_.next().empty()) {
  }
  loop_.advance(1);
  EXPECT_EQ(received(), "Isecond");
}

TEST_F(NotificationSinkTest, BeginsAnewWithWhatWasUnderWay) {
  newSink("-Ci");
  sink_->send(causes(0, "fan"));
  EXPECT_EQ(received(), "Ifan");
  sink_->reopen();
  loop_.settle();
  EXPECT_EQ(received(), "Ifan");
  receiver_.acknowledge();
  until([this] { return !delivered_.empty(); });
  EXPECT_EQ(sink_->counts().givenUp, 0U);
}

TEST_F(NotificationSinkTest, LooksUpANameBesideTheLoop) {
  newSink("", "localhost");
  sink_->send(causes(0, "fan"));
  EXPECT_THAT(delivered_, IsEmpty());
  EXPECT_EQ(received(), "Tfan");
}

TEST_F(NotificationSinkTest, LooksUpANameAgainOnceItIsOld) {
  newSink("", "localhost");
  sink_->send(causes(0, "fan"));
  received();
  loop_.advance(600);
  sink_->send(causes(0, "fan"));
  EXPECT_EQ(delivered_.size(), 1U);
  EXPECT_EQ(received(), "Tfan");
}

TEST_F(NotificationSinkTest, KeepsWhatANameThatDoesNotResolveIsToBeTold) {
  newSink("", "no-such-name.invalid");
  sink_->send(causes(0, "fan"));
  until([this] { return !sink_->problem().empty(); });
  EXPECT_THAT(said_, ElementsAre(HasSubstr("no address for 'no-such-name.invalid'; trying again")));
  EXPECT_EQ(sink_->kept(), 1U);
}

TEST_F(NotificationSinkTest, EndsWithAnInformUnderWay) {
  newSink("-Ci");
  sink_->send(causes(0, "fan"));
  sink_ = nullptr;
  EXPECT_EQ(loop_.timers(), 0U);
  EXPECT_EQ(loop_.descriptors(), 0U);
}

}  // namespace
}  // namespace Host
