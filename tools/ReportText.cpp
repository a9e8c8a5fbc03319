#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "Qel/Escape.h"
#include "tools/Report.h"
#include "tools/TextLayout.h"
#include "tools/Time.h"

namespace Tools {

namespace {

// Column by column: two blanks, how long ago, two blanks, the cause and what goes with it.
constexpr std::size_t kAgeColumns = 13;
constexpr std::size_t kTextBegin = 2 + kAgeColumns + 2;
constexpr std::size_t kLabelColumns = 8;

constexpr char kUnknown[] = "time unknown";
constexpr char kFuture[] = "in the future";

// The attributes of a terminal (ECMA-48, SGR).
constexpr char kPlain[] = "";
constexpr char kBold[] = "1";
constexpr char kFaint[] = "2";
constexpr char kYellow[] = "33";
constexpr char kCyan[] = "36";

std::string agoText(double age) {
  constexpr double kYear = 365.2425 * 86400;
  constexpr double kSlack = 60;  // by which clocks may differ
  const double years = age / kYear;
  if (age < -kSlack) return kFuture;
  if (age < 1) return "just now";
  if (years >= 1000) return "long ago";
  return years >= 2 ? fmt::format("{:.0f} years ago", std::floor(years)) : ageText(age) + " ago";
}

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

std::string nameOf(const ReportedCell& cell) {
  if (!cell.cell) return "The unit that answered";
  const bool isSupervisor = *cell.cell == 1 || *cell.cell == 2;
  return fmt::format("{} {}{}", isSupervisor ? "Supervisor" : "Cell", *cell.cell,
                     cell.hasAnswered ? ", which answered" : "");
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
    line(painted(kBold, nameOf(cell)));
    for (const ReportedReload& each : cell.reloads) reload(each);
    if (cell.reloads.empty()) line("\n  no reload is recorded");
  }

 private:
  std::string painted(std::string_view attribute, std::string_view text) const {
    const bool isPlain = !style_.isColoured || attribute.empty() || text.empty();
    return isPlain ? std::string(text) : fmt::format("\x1b[{}m{}\x1b[0m", attribute, text);
  }
  std::string whenText(const ReportedCause& cause) const {
    return cause.time ? timeText(*cause.time, style_.isUtc) : kUnknown;
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
      block(fmt::format("  {}  ", paintedAge(kUnknown)), 0, kFaint, "no cause was recorded");
    }
    std::string shownBefore = kUnknown;
    bool isFirst = true;
    for (const ReportedCause& each : reload.causes) {
      const std::string age = each.time ? agoText(now_ - *each.time) : kUnknown;
      const std::string when =
          whenText(each) + (!isFirst && age == kFuture ? fmt::format(", {}", kFuture) : "");
      line("");
      block(fmt::format("  {}  ", paintedAge(isFirst ? age : "also")), 0, kBold,
            each.description.empty() ? "(no description)" : Qel::printableLine(each.description));
      if (when != shownBefore) block(std::string(kTextBegin, ' '), 0, kFaint, when);
      labelled("Action", kCyan, each.recommendedAction);
      labelled("Detail", kFaint, each.detail);
      shownBefore = when;
      isFirst = false;
    }
  }

  void labelled(std::string_view label, const char* attribute, std::string_view text) {
    std::string front = std::string(kTextBegin, ' ') + painted(attribute, label) +
                        std::string(kLabelColumns - label.size(), ' ');
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
