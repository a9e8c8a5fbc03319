#pragma once

#include <functional>

#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"

namespace Qel {

// A standing request to an event loop. Letting go of the last reference ends it, also from inside
// its own call.
class EventWatch : public PtrInterface {};

// The one thread's source of events. Calls are made one at a time, never from inside the request
// that asked for them. Whoever asks is called until the watch is let go; the loop must outlive its
// watches. A call deals with what goes wrong outside: what else it raises is a bug, and no loop
// hides that.
class EventLoop {
 public:
  virtual ~EventLoop() = default;

  // Calls while `fd` can be read (written) without blocking. Raises RangeException when the loop
  // can take no more descriptors.
  [[nodiscard]] virtual Ptr<EventWatch> readableIs(int fd, std::function<void()> call) = 0;
  [[nodiscard]] virtual Ptr<EventWatch> writableIs(int fd, std::function<void()> call) = 0;
  // Calls once, `seconds` from now (0: as soon as the loop is free).
  [[nodiscard]] virtual Ptr<EventWatch> timerIs(double seconds, std::function<void()> call) = 0;
};

}  // namespace Qel
