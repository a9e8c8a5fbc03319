#include "tools/Time.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <utility>

#include "Qel/Number.h"

namespace Tools {

namespace {

constexpr int kMinute = 60;
constexpr int kHour = 60 * kMinute;
constexpr int kDay = 24 * kHour;
constexpr double kYear = 365.2425 * kDay;

// Takes the parts of a text from its front. Once one is missing, nothing more is taken.
class Parts {
 public:
  explicit Parts(std::string_view text) : rest_(text) {}

  bool isEmpty() const noexcept { return rest_.empty(); }
  bool isGood() const noexcept { return good_; }

  bool take(char c) {
    if (rest_.empty() || rest_.front() != c) return false;
    rest_.remove_prefix(1);
    return true;
  }
  void need(char c) { good_ = take(c) && good_; }
  // So many digits, that make a number up to `most`.
  int digits(std::size_t count, int most) {
    const auto number = Qel::numberOf<unsigned>(rest_.substr(0, count));
    good_ = good_ && rest_.size() >= count && number && *number <= static_cast<unsigned>(most);
    if (!good_) return 0;
    rest_.remove_prefix(count);
    return static_cast<int>(*number);
  }
  // The digits after a point, at least one.
  double fraction() {
    const std::size_t count = std::min(rest_.find_first_not_of("0123456789"), rest_.size());
    std::string decimal = "0.";
    decimal += rest_.substr(0, count);
    const auto value = Qel::numberOf<double>(decimal);
    good_ = good_ && count > 0 && value;
    rest_.remove_prefix(count);
    return value.value_or(0.0);
  }

 private:
  std::string_view rest_;
  bool good_ = true;
};

struct Date {
  int year, month, day;
};

Date dateIn(Parts& parts) {
  Date date{};
  date.year = parts.digits(4, 9999);
  parts.need('-');
  date.month = parts.digits(2, 12);
  parts.need('-');
  date.day = parts.digits(2, 31);
  return date;
}

std::chrono::year_month_day calendarDayOf(const Date& date) {
  return {std::chrono::year(date.year), std::chrono::month(static_cast<unsigned>(date.month)),
          std::chrono::day(static_cast<unsigned>(date.day))};
}

// Whole seconds since midnight, and what of a second is left.
std::pair<int, double> clockTimeIn(Parts& parts) {
  int seconds = parts.digits(2, 23) * kHour;
  parts.need(':');
  seconds += parts.digits(2, 59) * kMinute;
  if (!parts.take(':')) return {seconds, 0.0};
  seconds += parts.digits(2, 59);
  return {seconds, parts.take('.') ? parts.fraction() : 0.0};
}

// Seconds by which a zone is ahead of UTC; nothing for local time.
std::optional<int> offsetIn(Parts& parts) {
  if (parts.isEmpty()) return {};
  if (parts.take('Z')) return 0;
  const int sign = parts.take('-') ? -1 : 1;
  if (sign > 0) parts.need('+');
  const int hours = parts.digits(2, 23) * kHour;
  return sign * (parts.take(':') ? hours + parts.digits(2, 59) * kMinute : hours);
}

double localSeconds(const Date& date, int clockTime) {
  std::tm fields{};
  fields.tm_year = date.year - 1900;
  fields.tm_mon = date.month - 1;
  fields.tm_mday = date.day;
  fields.tm_hour = clockTime / kHour;
  fields.tm_min = clockTime % kHour / kMinute;
  fields.tm_sec = clockTime % kMinute;
  fields.tm_isdst = -1;
  return static_cast<double>(std::mktime(&fields));
}

}  // namespace

std::optional<double> secondsOf(std::string_view text) {
  if (const auto seconds = Qel::numberOf<double>(text)) {
    return std::isfinite(*seconds) ? seconds : std::nullopt;
  }
  Parts parts(text);
  const Date date = dateIn(parts);
  parts.need('T');
  const auto [clockTime, fraction] = clockTimeIn(parts);
  const auto offset = offsetIn(parts);
  const auto day = calendarDayOf(date);
  if (!parts.isGood() || !parts.isEmpty() || !day.ok()) return {};
  if (!offset) return localSeconds(date, clockTime) + fraction;
  const auto days = std::chrono::sys_days(day).time_since_epoch().count();
  return static_cast<double>(std::int64_t{days} * kDay + clockTime - *offset) + fraction;
}

std::string timeText(double seconds, bool utc) {
  const auto whole = static_cast<std::time_t>(std::floor(seconds));
  if (utc) return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(whole));
  const std::string text = fmt::format("{:%Y-%m-%dT%H:%M:%S%z}", fmt::localtime(whole));
  // All parts are set apart but those of the offset.
  const std::string_view parts(text);
  return fmt::format("{}:{}", parts.substr(0, parts.size() - 2), parts.substr(parts.size() - 2));
}

std::string ageText(double seconds) {
  struct Unit {
    int seconds;
    const char* name;
  };
  constexpr std::array<Unit, 4> kUnits{{{kDay, "d"}, {kHour, "h"}, {kMinute, "min"}, {1, "s"}}};
  for (const auto& [length, name] : kUnits) {
    // Two of a unit, so that little is rounded away.
    if (seconds >= 2 * length) return fmt::format("{:.0f} {}", std::floor(seconds / length), name);
  }
  return fmt::format("{:.0f} s", std::floor(std::max(seconds, 0.0)));
}

std::string minuteText(double seconds, bool utc) {
  const auto whole = static_cast<std::time_t>(std::floor(seconds));
  return utc ? fmt::format("{:%Y-%m-%d %H:%MZ}", fmt::gmtime(whole))
             : fmt::format("{:%Y-%m-%d %H:%M}", fmt::localtime(whole));
}

std::string spanText(double seconds) {
  const double years = seconds / kYear;
  return years >= 2 ? fmt::format("{:.0f} years", std::floor(years)) : ageText(seconds);
}

std::string agoText(double age) {
  constexpr double kSlack = 60;
  constexpr double kLong = 1000 * kYear;
  if (age < -kSlack) return kFuture;
  if (age < 1) return "just now";
  return age >= kLong ? "long ago" : spanText(age) + " ago";
}

std::optional<double> lengthOf(std::string_view text) {
  struct Unit {
    std::string_view name;
    int seconds;
  };
  constexpr std::array<Unit, 7> kUnits{
      {{"min", kMinute}, {"s", 1}, {"m", kMinute}, {"h", kHour}, {"d", kDay}, {"w", 7 * kDay}, {}}};
  const auto unit =
      std::ranges::find_if(kUnits, [&](const Unit& each) { return text.ends_with(each.name); });
  const auto number = Qel::numberOf<double>(text.substr(0, text.size() - unit->name.size()));
  if (!number) return {};
  const double seconds = *number * std::max(unit->seconds, 1);
  return std::isfinite(seconds) && seconds > 0 ? std::optional(seconds) : std::nullopt;
}

}  // namespace Tools
