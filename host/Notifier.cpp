#include "host/Notifier.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "host/ReloadCauses.h"
#include "host/StateTree.h"

namespace Host {

Notifier::Notifier(ReloadOf reloadOf, NotificationChannel& channel, const std::string& file,
                   Qel::EventLoop& loop, Clock clock)
    : reloadOf_(std::move(reloadOf)),
      channel_(channel),
      loop_(loop),
      clock_(std::move(clock)),
      told_(file),
      news_(told_.read()) {
  channel_.deliveredIs([this](const Notification& told) { handleDelivered(told); });
  lookAtAll();
}

Notifier::~Notifier() {
  channel_.deliveredIs([](const Notification&) {});
}

void Notifier::agentStarted() {
  if (channel_.isWanted()) channel_.send(notificationOf({}));
}

void Notifier::lookAtAll() {
  for (U32 unit = 0; unit < kUnits; ++unit) changed(unit);
}

// From inside the change: there may be more to come, and the table is not to be looked at.
void Notifier::changed(U32 unit) {
  changed_.insert(unit);
  if (!look_) look_ = loop_.timerIs(0, [this] { look(); });
}

void Notifier::look() {
  look_ = nullptr;
  const auto changed = std::exchange(changed_, {});
  if (!channel_.isWanted()) return;
  for (const U32 unit : changed) {
    const auto reload = reloadOf_(unit);
    const auto digest = reload ? std::optional(reloadCausesOf(unit, *reload).digest) : std::nullopt;
    if (news_.causesAre(unit, digest)) told_.toldIs(unit, *digest);
  }
  tellNews();
}

void Notifier::tellNews() {
  for (const U32 unit : news_.take(clock_())) {
    if (const auto reload = reloadOf_(unit)) {
      channel_.send(notificationOf(reloadCausesOf(unit, *reload)));
    }
  }
  const auto next = news_.next();
  next_ = next ? loop_.timerIs(std::max(0.0, *next - clock_()), [this] { tellNews(); }) : nullptr;
}

void Notifier::handleDelivered(const Notification& notification) {
  if (notification.causes) told_.toldIs(notification.causes->unit, notification.causes->digest);
}

}  // namespace Host
