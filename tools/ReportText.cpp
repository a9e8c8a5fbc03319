#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Qel/Escape.h"
#include "tools/RecordedVerdict.h"
#include "tools/Report.h"
#include "tools/TextLayout.h"
#include "tools/Time.h"

namespace Tools {

namespace {

// Column by column: two blanks, how long ago, two blanks, the cause and what goes with it.
constexpr std::size_t kAgeColumns = 13;
constexpr std::size_t kTextBegin = 2 + kAgeColumns + 2;
constexpr std::size_t kLabelColumns = 8;

// Of the timeline, in front of the cause: when it was, and how long it ran before.
constexpr std::size_t kWhenColumns = 17;
constexpr std::size_t kUpColumns = 10;
constexpr std::size_t kTimelineIndent = kWhenColumns + 2 + kUpColumns + 2;
constexpr std::size_t kLeastForTimelineText = 24;
constexpr std::size_t kMostInTimeline = 10;
constexpr std::size_t kMostOfSummary = 120;

constexpr char kUnknown[] = "time unknown";

// The attributes of a terminal (ECMA-48, SGR).
constexpr char kPlain[] = "";
constexpr char kBold[] = "1";
constexpr char kFaint[] = "2";
constexpr char kYellow[] = "33";
constexpr char kCyan[] = "36";

// The lines of a text that may have several.
std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

std::string textIndent() { return std::string(kTextBegin, ' '); }

std::string whenText(const ReportedTime& time, bool isUtc) {
  if (!time.isKnown()) return kUnknown;
  if (!time.until) return fmt::format("after {}, by the clock then", timeText(*time.since, isUtc));
  std::string end = timeText(*time.until, isUtc);
  if (time.isMoment()) return end;
  if (!time.since) return "before " + end;
  return fmt::format("between {} and {}", timeText(*time.since, isUtc), end);
}

std::string descriptionOf(const ReportedCause& cause) {
  return cause.description.empty() ? "(no description)" : Qel::printableLine(cause.description);
}

std::string padded(const std::string& text, std::size_t columns) {
  return fmt::format("{:<{}}", text, columns);
}

// The first cause of a reload, or as much of it as leaves a timeline one.
std::string summaryOf(const ReportedReload& reload) {
  if (reload.causes.empty()) return "no cause was recorded";
  const std::string text = shortened(descriptionOf(reload.causes.front()), kMostOfSummary);
  const std::size_t further = reload.causes.size() - 1;
  return further == 0 ? text : fmt::format("{} (and {} more)", text, further);
}

class Writer {
 public:
  Writer(double now, const ReportStyle& style) : now_(now), style_(style) {}

  const std::string& text() const noexcept { return text_; }

  void line(std::string_view text) {
    text_ += text.substr(0, text.find_last_not_of(' ') + 1);
    text_ += '\n';
  }

  void cell(const ReportedCell& cell) {
    if (!text_.empty()) line("");
    line(painted(kBold, nameOf(cell) + (cell.cell && cell.hasAnswered ? ", which answered" : "")));
    if (cell.reloads.empty()) return line("\n  no reload is recorded");
    reload(cell.reloads.front());
    if (cell.reloads.size() > 1) timeline(cell.reloads);
  }

 private:
  std::string painted(std::string_view attribute, std::string_view text) const {
    const bool isPlain = !style_.isColoured || attribute.empty() || text.empty();
    return isPlain ? std::string(text) : fmt::format("\x1b[{}m{}\x1b[0m", attribute, text);
  }
  // How long ago something was, in the words of the column of ages. A begin tells no age: it is by
  // another clock.
  std::string ageOf(const ReportedTime& time) const {
    return time.until ? agoText(now_ - *time.until) : kUnknown;
  }
  std::string paintedAge(const std::string& age) const {
    const bool isDoubtful = age == kUnknown || age == kFuture;
    // Padded first: the terminal does not count attributes as columns.
    return painted(isDoubtful ? kYellow : kFaint, fmt::format("{:>{}}", age, kAgeColumns));
  }

  // Text in the column of texts, at its `indent`, behind `front` in the first line.
  void block(const std::string& front, std::size_t indent, const char* attribute,
             std::string_view text) {
    std::string before = front;
    for (const std::string& each : wrapped(text, style_.columns - kTextBegin - indent)) {
      line(before + painted(attribute, each));
      before = std::string(kTextBegin + indent, ' ');
    }
  }

  void reload(const ReportedReload& reload) {
    if (reload.causes.empty()) {
      line("");
      block(fmt::format("  {}  ", paintedAge(kUnknown)), 0, kFaint, summaryOf(reload));
    }
    std::string shownBefore = kUnknown;
    bool isFirst = true;
    for (const ReportedCause& each : reload.causes) {
      const ReportedTime time = timeOf(each);
      const std::string age = ageOf(time);
      const std::string when = whenText(time, style_.isUtc) +
                               (!isFirst && age == kFuture ? fmt::format(", {}", kFuture) : "");
      line("");
      block(fmt::format("  {}  ", paintedAge(isFirst ? age : "also")), 0, kBold,
            descriptionOf(each));
      if (when != shownBefore) block(textIndent(), 0, kFaint, when);
      labelled("Action", kCyan, each.recommendedAction);
      detail(each);
      shownBefore = when;
      isFirst = false;
    }
  }

  void detail(const ReportedCause& cause) {
    const auto verdict = verdictIn(cause.detail);
    if (!verdict) {
      labelled("Detail", kFaint, cause.detail);
      if (style_.hasEvidence && cause.detail.empty()) labelled("Found", kFaint, "not recorded");
      return;
    }
    const char* separator = verdict->orElse.empty() ? "" : ": ";
    labelled("Sure", kFaint, verdict->confidence + separator + verdict->orElse);
    if (!style_.hasEvidence) return;
    labelled("Rule", kFaint, verdict->rule);
    labelled("Found", kFaint,
             verdict->evidence.empty() ? "nothing that tells"
                                       : fmt::format("{}", fmt::join(verdict->evidence, "\n")));
    labelled("Boot", kFaint, verdict->boot);
  }

  void timeline(const std::vector<ReportedReload>& reloads) {
    line("");
    line(painted(kBold, "  The last reloads"));
    line("");
    const std::size_t shown = std::min(reloads.size(), kMostInTimeline);
    for (std::size_t i = 0; i < shown; ++i) entry(reloads[i], upBefore(reloads, i));
    if (shown == reloads.size()) return;
    block(textIndent(), 0, kFaint, fmt::format("and {} older", reloads.size() - shown));
  }

  // In a line where there is room for it, else when it was stands above the cause.
  void entry(const ReportedReload& reload, const std::optional<double>& seconds) {
    const ReportedTime time = timeOf(reload);
    const std::string front = fmt::format("  {}  ", paintedAge(ageOf(time)));
    const std::string up = seconds ? "up " + spanText(*seconds) : "";
    const std::string when =
        time.isKnown() ? minuteText(*(time.since ? time.since : time.until), style_.isUtc) : "";
    const std::string cause = summaryOf(reload) + doubtOf(time);
    const bool isRow = style_.columns >= kTextBegin + kTimelineIndent + kLeastForTimelineText &&
                       when.size() <= kWhenColumns && up.size() <= kUpColumns;
    if (isRow) {
      block(fmt::format("{}{}  {}  ", front, painted(kFaint, padded(when, kWhenColumns)),
                        painted(kFaint, padded(up, kUpColumns))),
            kTimelineIndent, kPlain, cause);
      return;
    }
    const std::string both = when + (when.empty() || up.empty() ? "" : ", ") + up;
    if (!both.empty()) block(front, 0, kFaint, both);
    block(both.empty() ? front : textIndent(), 0, kPlain, cause);
  }

  // What is to be said of a time that is a window.
  std::string doubtOf(const ReportedTime& time) const {
    if (!time.isKnown() || time.isMoment()) return {};
    if (!time.until) return ", or after";
    return time.since ? ", by " + minuteText(*time.until, style_.isUtc) : ", or before";
  }

  void labelled(std::string_view label, const char* attribute, std::string_view text) {
    std::string front =
        textIndent() + painted(attribute, label) + std::string(kLabelColumns - label.size(), ' ');
    for (const std::string_view each : linesOf(text)) {
      block(front, kLabelColumns, kPlain, Qel::printableLine(each));
      front = std::string(kTextBegin + kLabelColumns, ' ');
    }
  }

  const double now_;
  const ReportStyle style_;
  std::string text_;
};

}  // namespace

std::string textOf(const Report& report, double now, const ReportStyle& style) {
  Writer writer(now, style);
  for (const ReportedCell& cell : report.cells) writer.cell(cell);
  if (report.cells.empty()) {
    writer.line("No reload is recorded in " + Qel::printableLine(report.source));
  }
  return writer.text();
}

}  // namespace Tools
