#include "Qel/ActivityManager.h"

#include <string>
#include <utility>

#include "Qel/Failure.h"
#include "Qel/Trace.h"

namespace Qel {

namespace {

TraceHandle& traceHandle() {
  static TraceHandle handle("Qel");
  return handle;
}

void traceFailure(const std::string& error) {
  if (auto trace = TraceHelper::createIfEnabled(traceHandle(), 0, __FILE__, __LINE__, __func__)) {
    *trace << "put-off work failed: " << error;
  }
}

}  // namespace

Activity::Activity(Work work) : work_(std::move(work)) {}

Activity::~Activity() {
  if (manager_ != nullptr) manager_->forget(*this);
}

ActivityManager::ActivityManager() : clock_(make<SystemClock>()) {}

ActivityManager::~ActivityManager() {
  for (Activity* activity : pending_) {
    if (activity != nullptr) activity->manager_ = nullptr;
  }
}

void ActivityManager::clockIs(const Ptr<Clock const>& clock) { clock_ = clock; }

Ptr<Activity> ActivityManager::activityIs(Activity::Work work) {
  Ptr<Activity> activity = make<Activity>(std::move(work));
  const bool wasIdle = pending_.empty();
  pending_.push_back(activity.get());
  activity->manager_ = this;
  // A run wakes the loop at its end for what was put off meanwhile.
  if (wasIdle && !running_ && wakeUp_) wakeUp_();
  return activity;
}

std::size_t ActivityManager::run() {
  if (running_) return 0;
  std::size_t count = 0;
  running_ = true;
  for (std::size_t left = pending_.size(); left > 0; --left) {
    const Ptr<Activity> activity(std::exchange(pending_.front(), nullptr));
    pending_.pop_front();
    if (!activity) continue;
    activity->manager_ = nullptr;
    runOne(*activity);
    ++count;
  }
  running_ = false;
  if (!pending_.empty() && wakeUp_) wakeUp_();
  return count;
}

void ActivityManager::runOne(Activity& activity) noexcept {
  // Moved out, so that what the work holds goes with it even while the owner keeps the activity.
  const Activity::Work work = std::move(activity.work_);
  if (const auto failure = failureOf(work)) traceFailure(*failure);
}

void ActivityManager::forget(const Activity& activity) noexcept {
  // A hole rather than an erasure: a run counts what it still has to do.
  for (Activity*& pending : pending_) {
    if (pending == &activity) pending = nullptr;
  }
}

void ActivityManager::wakeUpIs(std::function<void()> wakeUp) {
  wakeUp_ = std::move(wakeUp);
  if (wakeUp_ && !pending_.empty()) wakeUp_();
}

const Ptr<ActivityManager>& activityManager() {
  static const Ptr<ActivityManager> manager = make<ActivityManager>();
  return manager;
}

}  // namespace Qel
