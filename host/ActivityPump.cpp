#include "host/ActivityPump.h"

#include "Qel/ActivityManager.h"

namespace Host {

ActivityPump::ActivityPump(Qel::EventLoop& loop) : loop_(loop) {
  Qel::activityManager()->wakeUpIs(
      [this] { next_ = loop_.timerIs(0, [] { Qel::activityManager()->run(); }); });
}

ActivityPump::~ActivityPump() { Qel::activityManager()->wakeUpIs({}); }

}  // namespace Host
