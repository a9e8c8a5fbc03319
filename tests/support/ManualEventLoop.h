#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <vector>

#include "Qel/EventLoop.h"

namespace support {

// An event loop in which only the test makes things happen: descriptors become ready and time
// passes when it says so. The numbers of descriptors need not be open.
//
// Watches keep the contract of Qel::EventLoop: letting go ends them, also from inside a call, and
// what is asked for during a call is first served by the next one.
class ManualEventLoop final : public Qel::EventLoop {
 public:
  ManualEventLoop() = default;
  ManualEventLoop(const ManualEventLoop&) = delete;
  ManualEventLoop& operator=(const ManualEventLoop&) = delete;
  // Every watch must have been let go.
  ~ManualEventLoop() override;

  [[nodiscard]] Qel::Ptr<Qel::EventWatch> readableIs(int fd, std::function<void()> call) override;
  [[nodiscard]] Qel::Ptr<Qel::EventWatch> writableIs(int fd, std::function<void()> call) override;
  [[nodiscard]] Qel::Ptr<Qel::EventWatch> timerIs(double seconds,
                                                  std::function<void()> call) override;

  // Further descriptor watches beyond this number are refused, as by a loop that is full.
  void mostDescriptorsIs(std::size_t most) { mostDescriptors_ = most; }

  // Calls those who watch `fd`, once each; returns how many were called.
  std::size_t readable(int fd) { return ready(Kind::readable, fd); }
  std::size_t writable(int fd) { return ready(Kind::writable, fd); }
  // Lets time pass and calls every timer that comes due, in order of time and then of asking,
  // including those set meanwhile. Returns how many were called.
  std::size_t advance(double seconds);
  // Runs put-off work and timers that are due now until there are none.
  void settle();

  // Seconds since the loop was made.
  double now() const noexcept { return now_; }
  bool isReadWatched(int fd) const noexcept { return isWatched(Kind::readable, fd); }
  bool isWriteWatched(int fd) const noexcept { return isWatched(Kind::writable, fd); }
  // Descriptor watches, and timers that have not been called, at present.
  std::size_t descriptors() const noexcept;
  std::size_t timers() const noexcept;
  // Seconds until the next timer is due; infinity without one.
  double untilNextTimer() const noexcept;

 private:
  enum class Kind { readable, writable, timer };
  class Watch;
  using Number = std::uint64_t;

  Qel::Ptr<Qel::EventWatch> watchIs(Kind kind, int fd, double due, std::function<void()> call);
  Qel::Ptr<Qel::EventWatch> descriptorIs(Kind kind, int fd, std::function<void()> call);
  std::size_t ready(Kind kind, int fd);
  bool isWatched(Kind kind, int fd) const noexcept;
  Watch* nextTimer() const noexcept;

  std::map<Number, Watch*> watches_;
  Number nextNumber_ = 0;
  double now_ = 0.0;
  std::size_t mostDescriptors_ = std::numeric_limits<std::size_t>::max();
};

}  // namespace support
