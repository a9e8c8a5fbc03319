#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "Kavra/File/FileObserver.h"

namespace kavratest {

// A file system that answers no question while it is held up, and counts who asks.
class HeldUpFiles {
 public:
  HeldUpFiles() = default;
  HeldUpFiles(const HeldUpFiles&) = delete;
  HeldUpFiles& operator=(const HeldUpFiles&) = delete;
  ~HeldUpFiles() { isHeldUpIs(false); }

  // Looks at it, as fast as it can.
  Kavra::File::LookOptions options() const {
    Kavra::File::LookOptions options;
    options.lookEvery = options.retryEvery = 0.01;
    options.facts = [state = state_](const std::string& path) {
      state->wait();
      return Kavra::File::factsOf(path);
    };
    return options;
  }

  void isHeldUpIs(bool heldUp) {
    const std::lock_guard lock(state_->mutex);
    state_->heldUp = heldUp;
    state_->changed.notify_all();
  }
  // How many wait, and how many waited up to now.
  int waiting() const {
    const std::lock_guard lock(state_->mutex);
    return state_->waiting;
  }
  int waited() const {
    const std::lock_guard lock(state_->mutex);
    return state_->waited;
  }
  // How many questions were put up to now.
  int questions() const {
    const std::lock_guard lock(state_->mutex);
    return state_->questions;
  }

 private:
  struct State {
    void wait() {
      std::unique_lock lock(mutex);
      ++questions;
      if (!heldUp) return;
      ++waited;
      ++waiting;
      changed.wait(lock, [this] { return !heldUp; });
      --waiting;
    }

    std::mutex mutex;
    std::condition_variable changed;
    bool heldUp = false;
    int waiting = 0;
    int waited = 0;
    int questions = 0;
  };

  // Whoever waits may outlive the test.
  const std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace kavratest
