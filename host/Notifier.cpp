#include "host/Notifier.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "host/ReloadCauses.h"

namespace Host {

Notifier::Table Notifier::tableOf(const StateTree& tree) {
  return {[&tree](U32 unit) { return tree.reloadOf(unit); },
          [&tree](std::function<void()> call) { return tree.follow(std::move(call)); }};
}

Notifier::Notifier(Table table, NotificationChannel& channel, const std::string& file,
                   Qel::EventLoop& loop, Clock clock)
    : table_(std::move(table)),
      channel_(channel),
      loop_(loop),
      clock_(std::move(clock)),
      told_(file),
      news_(told_.read()) {
  channel_.deliveredIs([this](const Notification& told) { handleDelivered(told); });
  handleWanted();
}

Notifier::~Notifier() {
  channel_.deliveredIs([](const Notification&) {});
}

void Notifier::agentStarted() {
  if (channel_.isWanted()) channel_.send(notificationOf({}));
}

void Notifier::handleWanted() {
  if (!channel_.isWanted()) {
    following_ = nullptr;
    return;
  }
  if (!following_) following_ = table_.follow([this] { changed(); });
  changed();
}

// From inside the change: there may be more to come, and the table is not to be looked at.
void Notifier::changed() {
  if (!look_) look_ = loop_.timerIs(0, [this] { look(); });
}

void Notifier::look() {
  look_ = nullptr;
  if (!channel_.isWanted()) return;
  for (U32 unit = 0; unit < kUnits; ++unit) lookAt(unit);
  tellNews();
}

void Notifier::lookAt(U32 unit) {
  const Reload reload = table_.reloadOf(unit);
  const std::uint64_t version = reload ? reload->causeQ().version() : 0;
  Seen& seen = seen_.at(unit);
  if (seen.reload == reload && seen.version == version) return;
  seen = {reload, version};
  const auto digest = reload ? std::optional(reloadCausesOf(unit, *reload).digest) : std::nullopt;
  if (news_.causesAre(unit, digest)) told_.toldIs(unit, *digest);
}

void Notifier::tellNews() {
  for (const U32 unit : news_.take(clock_())) {
    if (const Reload reload = table_.reloadOf(unit)) {
      channel_.send(notificationOf(reloadCausesOf(unit, *reload)));
    }
  }
  const auto next = news_.next();
  next_ = next ? loop_.timerIs(std::max(0.0, *next - clock_()), [this] { look(); }) : nullptr;
}

void Notifier::handleDelivered(const Notification& notification) {
  if (notification.causes) told_.toldIs(notification.causes->unit, notification.causes->digest);
}

}  // namespace Host
