#include "host/NetSnmpEventLoop.h"

#include <fmt/format.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <memory>
#include <set>
#include <system_error>
#include <utility>

#include "Qel/Exception.h"
#include "Qel/Failure.h"
#include "host/Log.h"
#include "host/NetSnmp.h"

namespace Host {
namespace {

using Call = std::shared_ptr<const std::function<void()>>;

// Never raises into net-snmp: std::terminate() names a bug on standard error, and aborts.
void logFailureOf(const std::function<void()>& call) noexcept {
  if (const auto failure = Qel::failureOf(call)) {
    logLine(fmt::format("error in an event's handler: {}", *failure), LOG_ERR);
  }
}

// net-snmp's two lists of descriptors, which differ in the names of their functions only.
struct Direction {
  int (*registerFd)(int, void (*)(int, void*), void*);
  int (*unregisterFd)(int);
  std::set<int> watched;
};

Direction& readable() {
  static Direction direction{register_readfd, unregister_readfd, {}};
  return direction;
}

Direction& writable() {
  static Direction direction{register_writefd, unregister_writefd, {}};
  return direction;
}

class DescriptorWatch final : public Qel::EventWatch {
 public:
  DescriptorWatch(Direction& direction, int fd, std::function<void()> call)
      : direction_(direction), fd_(fd), call_(std::make_shared<const std::function<void()>>(call)) {
    // net-snmp unregisters by descriptor alone: of two watches, the wrong one would end.
    if (!direction_.watched.insert(fd).second) {
      Qel::throwRangeException(fmt::format("descriptor {} is watched already", fd));
    }
    if (direction_.registerFd(fd, &DescriptorWatch::dispatch, this) != FD_REGISTERED_OK) {
      direction_.watched.erase(fd);
      Qel::throwRangeException(fmt::format("no room to watch descriptor {}", fd));
    }
  }
  ~DescriptorWatch() override {
    direction_.unregisterFd(fd_);
    direction_.watched.erase(fd_);
  }

 private:
  static void dispatch(int /*fd*/, void* watch) {
    // The call may end its own watch; what it runs on has to stay.
    const Call call = static_cast<DescriptorWatch*>(watch)->call_;
    logFailureOf(*call);
  }

  Direction& direction_;
  const int fd_;
  const Call call_;
};

class TimerWatch final : public Qel::EventWatch {
 public:
  TimerWatch(timeval delay, std::function<void()> call)
      : call_(std::make_shared<const std::function<void()>>(std::move(call))),
        alarm_(snmp_alarm_register_hr(delay, 0, &TimerWatch::dispatch, this)) {
    if (alarm_ == 0) Qel::throwRangeException("no room for another timer");
  }
  ~TimerWatch() override {
    if (alarm_ != 0) snmp_alarm_unregister(alarm_);
  }

 private:
  static void dispatch(unsigned int /*alarm*/, void* data) {
    auto* watch = static_cast<TimerWatch*>(data);
    watch->alarm_ = 0;  // net-snmp takes a single alarm out of its list after this call
    const Call call = watch->call_;
    logFailureOf(*call);
  }

  const Call call_;
  unsigned int alarm_;
};

// Not less than a microsecond: net-snmp takes an alarm without an interval for one that has been.
timeval delayOf(double seconds) {
  constexpr double kMicroseconds = 1e6;
  constexpr double kLongest = 1e9;
  const double delay = std::clamp(std::isnan(seconds) ? 0 : seconds, 1 / kMicroseconds, kLongest);
  const double whole = std::floor(delay);
  return {static_cast<time_t>(whole),
          static_cast<suseconds_t>(std::floor((delay - whole) * kMicroseconds))};
}

}  // namespace

NetSnmpEventLoop::NetSnmpEventLoop(std::function<void()> afterRound)
    : afterRound_(std::move(afterRound)) {
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_ALARM_DONT_USE_SIG, 1);
}

Qel::Ptr<Qel::EventWatch> NetSnmpEventLoop::readableIs(int fd, std::function<void()> call) {
  return Qel::make<DescriptorWatch>(readable(), fd, std::move(call));
}

Qel::Ptr<Qel::EventWatch> NetSnmpEventLoop::writableIs(int fd, std::function<void()> call) {
  return Qel::make<DescriptorWatch>(writable(), fd, std::move(call));
}

Qel::Ptr<Qel::EventWatch> NetSnmpEventLoop::timerIs(double seconds, std::function<void()> call) {
  return Qel::make<TimerWatch>(delayOf(seconds), std::move(call));
}

void NetSnmpEventLoop::run() {
  runUntil([] { return false; });
}

void NetSnmpEventLoop::runUntil(const std::function<bool()>& done) {
  while (running_ && !done()) {
    if (agent_check_and_process(1) < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "cannot wait for events");
    }
    afterRound_();
  }
}

}  // namespace Host
