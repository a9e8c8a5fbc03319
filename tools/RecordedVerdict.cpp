#include "tools/RecordedVerdict.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "tools/Time.h"

namespace Tools {

namespace {

// Takes the lines of a text from its front.
class Lines {
 public:
  explicit Lines(std::string_view text) : rest_(text) {}

  bool areLeft() const noexcept { return !rest_.empty(); }
  std::string_view next() {
    const std::size_t end = std::min(rest_.find('\n'), rest_.size());
    const std::string_view line = rest_.substr(0, end);
    rest_.remove_prefix(std::min(end + 1, rest_.size()));
    return line;
  }
  // What follows `name` in the next line, if it begins with that; else nothing is taken.
  std::optional<std::string_view> after(std::string_view name) {
    if (!rest_.starts_with(name)) return {};
    return next().substr(name.size());
  }

 private:
  std::string_view rest_;
};

// What stands in front of the first `mark`, and behind it.
std::optional<std::pair<std::string_view, std::string_view>> parted(std::string_view text,
                                                                    std::string_view mark) {
  const std::size_t at = text.find(mark);
  if (at == std::string_view::npos) return {};
  return std::pair(text.substr(0, at), text.substr(at + mark.size()));
}

// Whether it is a time, or a window, which is put into the verdict.
bool takeWhen(std::string_view when, RecordedVerdict& verdict) {
  constexpr std::string_view kBefore = "before ";
  constexpr std::string_view kBetween = "between ";
  constexpr std::string_view kAfter = "after ";
  if (when.starts_with(kBefore)) {
    verdict.until = secondsOf(when.substr(kBefore.size()));
    return verdict.until.has_value();
  }
  if (when.starts_with(kAfter)) {  // its end is of a clock that went back
    const auto begin = parted(when.substr(kAfter.size()), ", by the clock then");
    verdict.since = begin ? secondsOf(begin->first) : std::nullopt;
    return verdict.since.has_value();
  }
  if (!when.starts_with(kBetween)) return secondsOf(when).has_value();
  const auto ends = parted(when.substr(kBetween.size()), " and ");
  if (!ends) return false;
  verdict.since = secondsOf(ends->first);
  verdict.until = secondsOf(ends->second);
  return verdict.since && verdict.until;
}

bool isConfidence(std::string_view word) {
  constexpr std::array<std::string_view, 4> kWords{"certain", "likely", "possible", "unknown"};
  return std::ranges::find(kWords, word) != kWords.end();
}

}  // namespace

std::optional<RecordedVerdict> verdictIn(std::string_view detail) {
  Lines lines(detail);
  const auto boot = lines.after("boot: ");
  const auto when = lines.after("when: ");
  const auto confidence = lines.after("how sure: ");
  const auto rule = lines.after("rule: ");
  RecordedVerdict verdict;
  if (!boot || !when || !confidence || !rule) return {};
  if (!isConfidence(*confidence) || !takeWhen(*when, verdict)) return {};
  verdict.boot = *boot;
  verdict.confidence = *confidence;
  verdict.rule = *rule;
  verdict.orElse = lines.after("but: ").value_or("");
  while (lines.areLeft()) verdict.evidence.emplace_back(lines.next());
  return verdict;
}

}  // namespace Tools
