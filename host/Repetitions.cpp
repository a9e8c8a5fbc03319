#include "host/Repetitions.h"

#include <fmt/format.h>

#include <utility>

namespace Host {
namespace {

constexpr std::chrono::seconds kPause{1};
constexpr std::size_t kMostEvents = 1000;  // beyond, lines are told as they come

}  // namespace

bool Repetitions::admits(std::string_view event, const Line& line, Time now) {
  const auto known = events_.find(event);
  if (known == events_.end()) {
    if (events_.size() < kMostEvents) events_.emplace(event, Event{now, 0, line});
    return true;
  }
  known->second.latest = line;
  ++known->second.more;
  ++heldBack_;
  return false;
}

std::vector<Repetitions::Line> Repetitions::due(Time now) {
  std::vector<Line> lines;
  for (auto place = events_.begin(); place != events_.end();) {
    auto& [told, more, latest] = place->second;
    if (now - told < kPause) {
      ++place;
    } else if (more == 0) {
      place = events_.erase(place);
    } else {
      lines.push_back({latest.severity, fmt::format("{} ({} more)", latest.text, more)});
      heldBack_ -= std::exchange(more, 0);
      told = now;
      ++place;
    }
  }
  return lines;
}

std::vector<Repetitions::Line> Repetitions::all() {
  auto lines = due(Time::max());
  events_.clear();
  return lines;
}

}  // namespace Host
