#pragma once

#include <cstddef>
#include <deque>
#include <functional>

#include "Qel/Clock.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"

namespace Qel {

class ActivityManager;

// Work put off until the event loop is free. Letting go of the last reference cancels it.
class Activity final : public PtrInterface {
 public:
  using Work = std::function<void()>;

  explicit Activity(Work work);
  ~Activity() override;

 private:
  friend class ActivityManager;
  Work work_;
  ActivityManager* manager_ = nullptr;  // while the work waits
};

// Runs put-off work, in the order in which it was put off, and knows the process's clock.
//
// The manager refers to an activity weakly: only its owner keeps it. Work may put off more work,
// which waits for the next run.
class ActivityManager final : public PtrInterface {
 public:
  ActivityManager();
  ~ActivityManager() override;

  const Ptr<Clock const>& clock() const noexcept { return clock_; }
  void clockIs(const Ptr<Clock const>& clock);

  // Puts `work` off until the next run(). The caller keeps the result, or the work is cancelled.
  [[nodiscard]] Ptr<Activity> activityIs(Activity::Work work);

  // Runs what was put off before the call; returns how much that was. From inside work it does
  // nothing. An error that the outside caused (see Failure.h) is traced ("Qel", level 0) and goes
  // no further; any other that leaves work is a bug, and ends the process.
  std::size_t run();
  bool hasWork() const noexcept { return !pending_.empty(); }

  // `wakeUp` is called whenever work is put off and none was waiting: the event loop then sees to
  // it that run() is called soon, never from inside the call.
  void wakeUpIs(std::function<void()> wakeUp);

 private:
  friend class Activity;
  static void runOne(Activity& activity) noexcept;
  void forget(const Activity& activity) noexcept;

  Ptr<Clock const> clock_;
  std::deque<Activity*> pending_;  // null where the work was cancelled
  std::function<void()> wakeUp_;
  bool running_ = false;
};

// The manager of this process; its clock is a SystemClock until told otherwise.
const Ptr<ActivityManager>& activityManager();

}  // namespace Qel
