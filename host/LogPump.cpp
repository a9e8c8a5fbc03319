#include "host/LogPump.h"

#include <utility>

#include "Qel/Exception.h"

namespace Host {
namespace {

constexpr double kPause = 1;  // seconds

}  // namespace

LogPump::LogPump(Log& log, Qel::EventLoop& loop) : log_(log), loop_(loop) {
  log_.wakeUpIs([this] { arm(); });
}

LogPump::~LogPump() {
  log_.wakeUpIs({});
  log_.tellAll();
}

void LogPump::arm() {
  if (next_ || std::exchange(arming_, true)) return;
  try {
    next_ = loop_.timerIs(kPause, [this] { tell(); });
  } catch (const Qel::Exception&) {
    // No room for a timer: the next line tells, or asks again. The error's own trace came by here.
  }
  arming_ = false;
}

void LogPump::tell() {
  next_ = nullptr;
  log_.tellWhatIsDue();
  if (log_.hasMoreToTell()) arm();
}

}  // namespace Host
