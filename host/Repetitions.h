#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

// Keeps an event that repeats from filling the log: once a second it is told, and how often it
// occurred meanwhile.
class Repetitions {
 public:
  using Time = std::chrono::steady_clock::time_point;
  struct Line {
    int severity;
    std::string text;
  };

  // Whether a line is to be told now; otherwise it is counted. Lines of the same event repeat each
  // other.
  bool admits(std::string_view event, const Line& line, Time now);
  // The latest line of each event that was held back and may be told again, with the number held
  // back since it was told last.
  std::vector<Line> due(Time now);
  // The same for all, whether they may be told or not. Each event is new afterwards.
  std::vector<Line> all();
  bool holdsBack() const noexcept { return heldBack_ > 0; }

 private:
  struct Event {
    Time told;
    std::size_t more;
    Line latest;
  };

  std::map<std::string, Event, std::less<>> events_;  // told less than a second ago
  std::size_t heldBack_ = 0;
};

}  // namespace Host
