#include "Qel/PollEventLoop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "Qel/Assert.h"

namespace Qel {

namespace {

using Steady = std::chrono::steady_clock;

// Some decades: further than any process lives, and safe to add to any point in time.
constexpr double kMostSeconds = 1e9;

Steady::duration duration(double seconds) {
  // Written so that a number that is none counts as 0.
  const double bounded = seconds > 0.0 ? std::min(seconds, kMostSeconds) : 0.0;
  return std::chrono::duration_cast<Steady::duration>(std::chrono::duration<double>(bounded));
}

}  // namespace

class PollEventLoop::Descriptor final : public EventWatch {
 public:
  Descriptor(PollEventLoop& loop, int fd, short events, std::function<void()> call)
      : fd_(fd), events_(events), call_(std::move(call)), loop_(loop), number_(loop.nextNumber_++) {
    loop_.descriptors_.emplace(number_, this);
  }
  ~Descriptor() override { loop_.descriptors_.erase(number_); }

  const int fd_;
  const short events_;
  const std::function<void()> call_;

 private:
  PollEventLoop& loop_;
  const Number number_;
};

class PollEventLoop::Timer final : public EventWatch {
 public:
  Timer(PollEventLoop& loop, Time due, std::function<void()> call)
      : call_(std::move(call)), loop_(loop), place_(due, loop.nextNumber_++) {
    loop_.timers_.emplace(place_, this);
  }
  ~Timer() override { loop_.timers_.erase(place_); }

  const std::function<void()> call_;

 private:
  PollEventLoop& loop_;
  const std::pair<Time, Number> place_;
};

PollEventLoop::PollEventLoop(const Ptr<ActivityManager>& manager)
    : manager_(manager), wakeFd_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (wakeFd_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
}

PollEventLoop::~PollEventLoop() {
  QEL_ASSERT(descriptors_.empty() && timers_.empty());
  close(wakeFd_);
}

Ptr<EventWatch> PollEventLoop::readableIs(int fd, std::function<void()> call) {
  return descriptorIs(fd, POLLIN, std::move(call));
}

Ptr<EventWatch> PollEventLoop::writableIs(int fd, std::function<void()> call) {
  return descriptorIs(fd, POLLOUT, std::move(call));
}

Ptr<EventWatch> PollEventLoop::descriptorIs(int fd, short events, std::function<void()> call) {
  QEL_ASSERT(fd >= 0);
  return make<Descriptor>(*this, fd, events, std::move(call));
}

Ptr<EventWatch> PollEventLoop::timerIs(double seconds, std::function<void()> call) {
  return make<Timer>(*this, Steady::now() + duration(seconds), std::move(call));
}

std::size_t PollEventLoop::runOnce(double seconds) {
  QEL_ASSERT(!passing_);
  struct Passing {
    explicit Passing(bool& flag) : flag_(flag) { flag_ = true; }
    Passing(const Passing&) = delete;
    Passing& operator=(const Passing&) = delete;
    ~Passing() { flag_ = false; }
    bool& flag_;
  } const passing(passing_);
  return pass(seconds);
}

std::size_t PollEventLoop::pass(double seconds) {
  const std::size_t activities = manager_ ? manager_->run() : 0;
  const std::vector<Number> ready = readyAfter(waitMilliseconds(activities > 0 ? 0.0 : seconds));
  const std::size_t timers = callTimers();
  return activities + timers + callDescriptors(ready);
}

void PollEventLoop::run() {
  while (stopped_ == 0) runOnce(kMostSeconds);
  stopped_ = 0;
}

void PollEventLoop::stop() noexcept {
  const int error = errno;
  stopped_ = 1;
  // Full means that a wake-up waits already.
  [[maybe_unused]] const int written = eventfd_write(wakeFd_, 1);
  errno = error;
}

bool PollEventLoop::hasWork() const noexcept { return manager_ && manager_->hasWork(); }

int PollEventLoop::waitMilliseconds(double seconds) const {
  if (stopped_ != 0 || hasWork()) return 0;
  Steady::duration wait = duration(seconds);
  if (!timers_.empty()) wait = std::min(wait, timers_.begin()->first.first - Steady::now());
  // Rounded up, so that a timer is due when its wait is over.
  const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(wait).count();
  return static_cast<int>(std::clamp<std::int64_t>(milliseconds, 0, 1'000'000'000));
}

std::vector<PollEventLoop::Number> PollEventLoop::readyAfter(int milliseconds) {
  std::vector<pollfd> polled{{wakeFd_, POLLIN, 0}};
  std::vector<Number> numbers;
  for (const auto& [number, descriptor] : descriptors_) {
    polled.push_back({descriptor->fd_, descriptor->events_, 0});
    numbers.push_back(number);
  }
  if (poll(polled.data(), polled.size(), milliseconds) < 0) {
    if (errno == EINTR) return {};
    throw std::system_error(errno, std::generic_category(), "poll");
  }
  eventfd_t wakeUps = 0;
  if (polled.front().revents != 0) eventfd_read(wakeFd_, &wakeUps);
  std::vector<Number> ready;
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (polled[i + 1].revents != 0) ready.push_back(numbers[i]);
  }
  return ready;
}

std::size_t PollEventLoop::callTimers() {
  const std::pair end(Steady::now(), nextNumber_);
  std::size_t called = 0;
  while (!timers_.empty() && timers_.begin()->first < end) {
    const Ptr<Timer> held(timers_.begin()->second);
    // Called once: what the owner keeps now is a watch that is over.
    timers_.erase(timers_.begin());
    held->call_();
    ++called;
  }
  return called;
}

std::size_t PollEventLoop::callDescriptors(const std::vector<Number>& ready) {
  std::size_t called = 0;
  for (const Number number : ready) {
    const auto found = descriptors_.find(number);
    if (found == descriptors_.end()) continue;
    const Ptr<Descriptor> held(found->second);
    held->call_();
    ++called;
  }
  return called;
}

}  // namespace Qel
