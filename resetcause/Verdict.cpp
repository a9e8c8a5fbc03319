#include "resetcause/Verdict.h"

#include <array>
#include <cmath>
#include <cstddef>

namespace ResetCause {

namespace {

// A year's beginning before which no such machine was made: 2000.
constexpr double kFirstTime = 946684800;
constexpr double kHour = 3600;

}  // namespace

bool Boots::cover(double time) const noexcept {
  const auto from = begin();
  if (!from || *from < kFirstTime || time < std::floor(*from)) return false;
  return time <= (wentBack() ? *lastSign + kHour : start);
}

std::vector<std::string> notesOf(const Boots& boots) {
  std::vector<std::string> notes;
  if (boots.start < kFirstTime) {
    notes.emplace_back("the clock was not set when this boot started: times of it are of 1970");
  }
  if (boots.wentBack()) {
    notes.emplace_back(
        "the clock was set back: this boot started before the last sign of the one before it");
  }
  return notes;
}

std::string_view nameOf(Confidence confidence) noexcept {
  constexpr std::array<std::string_view, 4> kNames{"unknown", "possible", "likely", "certain"};
  return kNames[static_cast<std::size_t>(confidence)];
}

}  // namespace ResetCause
