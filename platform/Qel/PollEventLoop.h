#pragma once

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "Qel/ActivityManager.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"

namespace Qel {

// An event loop of its own over poll(2), for programs that no other loop runs in. It also runs the
// work that an activity manager puts off, before it waits.
//
// A pass calls first the timers that are due, then those who watch ready descriptors; each in the
// order of due time, or of asking. A watch that a call lets go is not called any more, one that it
// makes is first called by the next pass. A descriptor with an error or a hang-up counts as
// readable and writable: reading or writing tells what is wrong. An error that a call raises passes
// through runOnce() and run() and leaves the loop as it was after the call. Every watch must have
// been let go before the loop goes, and a descriptor before it is closed.
class PollEventLoop final : public EventLoop {
 public:
  // Runs the work of `manager`; none where it is null, as in a loop within somebody else's call.
  explicit PollEventLoop(const Ptr<ActivityManager>& manager = activityManager());
  PollEventLoop(const PollEventLoop&) = delete;
  PollEventLoop& operator=(const PollEventLoop&) = delete;
  ~PollEventLoop() override;

  [[nodiscard]] Ptr<EventWatch> readableIs(int fd, std::function<void()> call) override;
  [[nodiscard]] Ptr<EventWatch> writableIs(int fd, std::function<void()> call) override;
  [[nodiscard]] Ptr<EventWatch> timerIs(double seconds, std::function<void()> call) override;

  // One pass: waits at most `seconds` for something to do (0: does not wait; infinity: for as long
  // as it takes), then makes the calls that are due. Returns how many calls and pieces of work that
  // were. Not from inside a call.
  std::size_t runOnce(double seconds);
  // Passes until stop().
  void run();
  // Ends run() after the present pass, or the next run() at once; wakes a pass that waits. May be
  // called from a signal handler.
  void stop() noexcept;

 private:
  using Number = std::uint64_t;
  using Time = std::chrono::steady_clock::time_point;
  class Descriptor;
  class Timer;

  Ptr<EventWatch> descriptorIs(int fd, short events, std::function<void()> call);
  std::size_t pass(double seconds);
  bool hasWork() const noexcept;
  int waitMilliseconds(double seconds) const;
  std::vector<Number> readyAfter(int milliseconds);
  std::size_t callTimers();
  std::size_t callDescriptors(const std::vector<Number>& ready);

  const Ptr<ActivityManager> manager_;
  int wakeFd_ = -1;
  volatile std::sig_atomic_t stopped_ = 0;
  bool passing_ = false;
  Number nextNumber_ = 0;
  std::map<Number, Descriptor*> descriptors_;
  std::map<std::pair<Time, Number>, Timer*> timers_;
};

}  // namespace Qel
