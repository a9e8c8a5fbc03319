#pragma once

#include <optional>
#include <string>
#include <string_view>

// Points in time as people write them.
namespace Tools {

// Seconds since 1970 UTC of a text: either these as a decimal number, or ISO 8601 in its extended
// format, YYYY-MM-DDThh:mm[:ss[.fraction]] and then Z, an offset ±hh[:mm], or nothing for local
// time. Nothing for any other text, and for what no calendar or clock shows.
std::optional<double> secondsOf(std::string_view text);

// ISO 8601 to the second, in local time with its offset, or in UTC with a Z.
std::string timeText(double seconds, bool utc);

// The same to the minute, as in "2026-11-21 16:00Z"; in local time without the offset.
std::string minuteText(double seconds, bool utc);

// A length of time of so many seconds, in its largest unit: "12 s", "3 min", "5 h", "40 d".
std::string ageText(double seconds);

// The same with years, from two of them on: "12 years".
std::string spanText(double seconds);

// How long ago something was that is so many seconds old: "3 min ago", "12 years ago". A minute
// ahead, by which clocks may differ, is "just now", more is kFuture; a thousand years are "long
// ago".
std::string agoText(double age);
inline constexpr char kFuture[] = "in the future";

// Seconds of a length of time as people write it: a decimal number and its unit, one of s, m, min,
// h, d, w, or none for seconds. Nothing for any other text, and for what is not above 0.
std::optional<double> lengthOf(std::string_view text);

}  // namespace Tools
