#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include "Kavra/FileDescriptor.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"

namespace Host {

// Something tried out in a copy of the process, to see whether it would do, while the process goes
// on. The copy has no part in the descriptors of the process, and is gone when the trial is.
class Trial {
 public:
  // Returns what is wrong, or an empty text.
  using Work = std::function<std::string()>;
  using Call = std::function<void(const std::string& problem)>;

  // Seconds until a copy that has not ended is ended.
  static constexpr double kPatience = 5.0;

  // Calls `done` once, from the loop, which may end the trial. A copy that was ended, or ended by
  // itself without a word, is a problem as well. Raises std::system_error when there can be no
  // copy, RangeException when the loop has no room.
  Trial(Qel::EventLoop& loop, const Work& work, Call done);
  Trial(const Trial&) = delete;
  Trial& operator=(const Trial&) = delete;
  ~Trial();

 private:
  void handleReadable();
  void handleTimeout();
  std::string problem();

  const Call done_;
  bool late_ = false;
  std::string told_;
  Kavra::FileDescriptor from_;
  pid_t copy_ = -1;
  Qel::Ptr<Qel::EventWatch> readable_;
  Qel::Ptr<Qel::EventWatch> timer_;
};

}  // namespace Host
