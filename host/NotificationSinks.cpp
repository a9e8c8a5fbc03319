#include "host/NotificationSinks.h"

#include <algorithm>
#include <utility>

namespace Host {

std::unique_ptr<NotificationSink> NotificationSinks::take(const SinkLine& line) {
  const auto known = std::ranges::find_if(
      sinks_, [&line](const auto& sink) { return sink != nullptr && sink->line() == line; });
  return known == sinks_.end() ? nullptr : std::exchange(*known, nullptr);
}

void NotificationSinks::sinksAre(const SinkDirectives& directives) {
  std::vector<std::unique_ptr<NotificationSink>> sinks;
  for (const SinkLine& line : directives.sinks()) {
    auto sink = take(line);
    if (sink) {
      sink->reopen();
    } else {
      sink = std::make_unique<NotificationSink>(
          line, loop_, [this](const Notification& notification) { delivered_(notification); });
    }
    sinks.push_back(std::move(sink));
  }
  sinks_ = std::move(sinks);
}

void NotificationSinks::send(const Notification& notification) {
  for (const auto& sink : sinks_) sink->send(notification);
}

}  // namespace Host
