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

// A length of time of so many seconds, in its largest unit: "12 s", "3 min", "5 h", "40 d".
std::string ageText(double seconds);

}  // namespace Tools
