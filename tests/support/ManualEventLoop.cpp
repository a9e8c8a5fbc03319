#include "support/ManualEventLoop.h"

#include <algorithm>
#include <utility>

#include "Qel/ActivityManager.h"
#include "Qel/Assert.h"
#include "Qel/Exception.h"

namespace support {

class ManualEventLoop::Watch final : public Qel::EventWatch {
 public:
  Watch(ManualEventLoop& loop, Number number, Kind kind, int fd, double due,
        std::function<void()> call)
      : kind_(kind), fd_(fd), due_(due), loop_(loop), number_(number), call_(std::move(call)) {}
  ~Watch() override { loop_.watches_.erase(number_); }

  void call() {
    if (kind_ == Kind::timer) loop_.watches_.erase(number_);
    call_();
  }

  const Kind kind_;
  const int fd_;
  const double due_;

 private:
  ManualEventLoop& loop_;
  const Number number_;
  const std::function<void()> call_;
};

ManualEventLoop::~ManualEventLoop() { QEL_ASSERT(watches_.empty()); }

Qel::Ptr<Qel::EventWatch> ManualEventLoop::readableIs(int fd, std::function<void()> call) {
  return descriptorIs(Kind::readable, fd, std::move(call));
}

Qel::Ptr<Qel::EventWatch> ManualEventLoop::writableIs(int fd, std::function<void()> call) {
  return descriptorIs(Kind::writable, fd, std::move(call));
}

Qel::Ptr<Qel::EventWatch> ManualEventLoop::timerIs(double seconds, std::function<void()> call) {
  return watchIs(Kind::timer, -1, now_ + std::max(seconds, 0.0), std::move(call));
}

Qel::Ptr<Qel::EventWatch> ManualEventLoop::descriptorIs(Kind kind, int fd,
                                                        std::function<void()> call) {
  if (descriptors() >= mostDescriptors_) Qel::throwRangeException("no room for a descriptor");
  return watchIs(kind, fd, 0.0, std::move(call));
}

Qel::Ptr<Qel::EventWatch> ManualEventLoop::watchIs(Kind kind, int fd, double due,
                                                   std::function<void()> call) {
  const Number number = nextNumber_++;
  const auto watch = Qel::make<Watch>(*this, number, kind, fd, due, std::move(call));
  watches_.emplace(number, watch.get());
  return watch;
}

std::size_t ManualEventLoop::ready(Kind kind, int fd) {
  std::vector<Number> watching;
  for (const auto& [number, watch] : watches_) {
    if (watch->kind_ == kind && watch->fd_ == fd) watching.push_back(number);
  }
  std::size_t called = 0;
  for (const Number number : watching) {
    // One call may have ended another's watch.
    const auto found = watches_.find(number);
    if (found == watches_.end()) continue;
    const Qel::Ptr<Watch> held(found->second);
    held->call();
    ++called;
  }
  return called;
}

std::size_t ManualEventLoop::advance(double seconds) {
  const double until = now_ + seconds;
  std::size_t called = 0;
  for (Watch* timer = nextTimer(); timer != nullptr && timer->due_ <= until; timer = nextTimer()) {
    now_ = std::max(now_, timer->due_);
    const Qel::Ptr<Watch> held(timer);
    held->call();
    ++called;
  }
  now_ = until;
  return called;
}

void ManualEventLoop::settle() {
  while (Qel::activityManager()->run() + advance(0.0) > 0) {
  }
}

bool ManualEventLoop::isWatched(Kind kind, int fd) const noexcept {
  return std::any_of(watches_.begin(), watches_.end(), [kind, fd](const auto& entry) {
    return entry.second->kind_ == kind && entry.second->fd_ == fd;
  });
}

std::size_t ManualEventLoop::timers() const noexcept {
  const auto count = std::count_if(watches_.begin(), watches_.end(), [](const auto& entry) {
    return entry.second->kind_ == Kind::timer;
  });
  return static_cast<std::size_t>(count);
}

std::size_t ManualEventLoop::descriptors() const noexcept { return watches_.size() - timers(); }

double ManualEventLoop::untilNextTimer() const noexcept {
  const Watch* timer = nextTimer();
  return timer == nullptr ? std::numeric_limits<double>::infinity() : timer->due_ - now_;
}

ManualEventLoop::Watch* ManualEventLoop::nextTimer() const noexcept {
  Watch* next = nullptr;
  for (const auto& [number, watch] : watches_) {
    if (watch->kind_ != Kind::timer) continue;
    if (next == nullptr || watch->due_ < next->due_) next = watch;
  }
  return next;
}

}  // namespace support
