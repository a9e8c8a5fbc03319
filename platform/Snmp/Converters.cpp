#include "Snmp/Converters.h"

#include <chrono>
#include <cstdint>
#include <cstring>

#include "Qel/Exception.h"
#include "Qel/Format.h"

namespace Snmp {

namespace {

constexpr int kFailed = -1;
constexpr std::uint64_t kSecondsADay = 86400;
// The first second of the year 65536, which two octets do not hold.
constexpr double kEnd = 2005949145600.0;
constexpr int kLength = 11;  // with the offset from UTC

constexpr unsigned char octet(unsigned value) { return static_cast<unsigned char>(value); }

struct Date {
  unsigned year;
  unsigned month;
  unsigned day;
};

// The Gregorian calendar repeats itself every 400 years, which takes dates that the library's
// calendar does not reach into one that it does.
Date dateOf(unsigned daysSince1970) {
  constexpr unsigned kDaysACycle = 146097;
  const std::chrono::sys_days day{std::chrono::days{daysSince1970 % kDaysACycle}};
  const std::chrono::year_month_day date{day};
  return {static_cast<unsigned>(int{date.year()}) + 400 * (daysSince1970 / kDaysACycle),
          unsigned{date.month()}, unsigned{date.day()}};
}

}  // namespace

int SecondsToAsnDateAndTimeF::operator()(double seconds, unsigned char* buffer,
                                         std::size_t length) const {
  if (!(seconds >= 0.0 && seconds < kEnd) || length < kLength) return kFailed;
  const auto whole = static_cast<std::int64_t>(seconds);
  const auto deciseconds = static_cast<unsigned>((seconds - static_cast<double>(whole)) * 10.0);
  const Date date = dateOf(static_cast<unsigned>(static_cast<std::uint64_t>(whole) / kSecondsADay));
  const auto ofDay = static_cast<unsigned>(static_cast<std::uint64_t>(whole) % kSecondsADay);
  buffer[0] = octet(date.year >> 8);
  buffer[1] = octet(date.year & 0xff);
  buffer[2] = octet(date.month);
  buffer[3] = octet(date.day);
  buffer[4] = octet(ofDay / 3600);
  buffer[5] = octet(ofDay / 60 % 60);
  buffer[6] = octet(ofDay % 60);
  buffer[7] = octet(deciseconds);
  buffer[8] = '+';
  buffer[9] = 0;
  buffer[10] = 0;
  return kLength;
}

void throwNoU32(const void* value) {
  if (value == nullptr) Qel::throwRangeException("there is no number");
  long kept = 0;
  std::memcpy(&kept, value, sizeof kept);
  Qel::throwRangeException(Qel::format("%d is not an unsigned 32-bit number", kept));
}

}  // namespace Snmp
