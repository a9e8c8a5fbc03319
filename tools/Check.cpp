#include "tools/Check.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "Qel/Escape.h"
#include "tools/Requested.h"
#include "tools/TextLayout.h"
#include "tools/Time.h"

namespace Tools {

namespace {

// Such a system reads some kilobytes, of the first line less.
constexpr std::size_t kMostOfSummary = 100;
constexpr std::size_t kMostOfLine = 300;
constexpr std::size_t kMostCausesTold = 10;
constexpr std::size_t kMostSummaries = 3;
constexpr std::size_t kMostLines = 50;

// A bar begins the performance data, wherever it stands.
std::string harmless(std::string_view text) {
  std::string shown;
  for (const char c : Qel::printableLine(text)) {
    if (c == '|') {
      shown += "\\x7c";
    } else {
      shown += c;
    }
  }
  return shown;
}

std::string descriptionOf(const ReportedCause& cause, std::size_t most) {
  return cause.description.empty() ? "(no description)"
                                   : shortened(harmless(cause.description), most);
}

// The first cause, and how many others there are.
std::string summaryOf(const ReportedReload& reload) {
  if (reload.causes.empty()) return "no cause was recorded";
  const std::size_t further = reload.causes.size() - 1;
  const std::string text = descriptionOf(reload.causes.front(), kMostOfSummary);
  return further == 0 ? text : fmt::format("{} (and {} more)", text, further);
}

// Nobody is told less because of what is not known elsewhere.
int severityOf(CheckState state) {
  constexpr std::array<CheckState, 4> kAscending{CheckState::ok, CheckState::unknown,
                                                 CheckState::warning, CheckState::critical};
  return static_cast<int>(std::ranges::find(kAscending, state) - kAscending.begin());
}

class Check {
 public:
  Check(double now, const CheckOptions& options) : now_(now), options_(options) {}

  CheckResult of(const Report& report) {
    for (const ReportedCell& each : report.cells) cell(each);
    for (const std::string& problem : report.problems) {
      find(CheckState::unknown, shortened(harmless(problem), kMostOfLine));
    }
    if (report.cells.empty() && report.problems.empty()) {
      find(CheckState::unknown, "no reload is recorded in " + harmless(report.source));
    }
    return {state_, text()};
  }

 private:
  void find(CheckState state, const std::string& summary) {
    if (severityOf(state) < severityOf(state_)) return;
    if (state != state_) summaries_.clear();
    state_ = state;
    summaries_.push_back(summary);
  }

  void cell(const ReportedCell& cell) {
    const std::string name = nameOf(cell);
    const U32 number = cell.cell.value_or(0);
    const ReportedReload* last = cell.reloads.empty() ? nullptr : &cell.reloads.front();
    performance_.push_back(fmt::format("last_reload_{}={}", number, ageData(last)));
    performance_.push_back(fmt::format("causes_{}={};;;0", number,
                                       last == nullptr ? std::size_t{0} : last->causes.size()));
    if (last == nullptr) {
      lines_.push_back(name + ": no reload is recorded");
      return;
    }
    judge(name, *last);
    for (auto each = cell.reloads.begin() + 1; each != cell.reloads.end(); ++each) {
      const auto age = ageOf(*each);
      if (age && isRecent(*age)) judge(name, *each);
    }
  }

  // A reload, of which there is something to tell.
  void judge(const std::string& name, const ReportedReload& reload) {
    const auto age = ageOf(reload);
    const std::string summary = summaryOf(reload);
    if (!age) {
      find(CheckState::unknown, fmt::format("{} reloaded at an unknown time: {}", name, summary));
    } else if (agoText(*age) == kFuture) {
      find(CheckState::unknown,
           fmt::format("{} reloaded {}, so a clock was wrong: {}", name, kFuture, summary));
    } else if (isRecent(*age)) {
      const bool isFine = isRequested(reload) && options_.isRequestedOk;
      find(isFine                ? CheckState::ok
           : isRequested(reload) ? CheckState::warning
                                 : CheckState::critical,
           fmt::format("{} reloaded {}: {}", name, agoText(*age), summary));
    }
    tell(name, reload, age);
  }

  void tell(const std::string& name, const ReportedReload& reload,
            const std::optional<double>& age) {
    const std::string when =
        age ? fmt::format("{}, {}", agoText(*age), timeText(now_ - *age, true)) : "time unknown";
    if (reload.causes.empty()) lines_.push_back(name + ": no cause was recorded");
    std::string before = fmt::format("{}: {}: ", name, when);
    for (std::size_t i = 0; i < reload.causes.size(); ++i) {
      if (i == kMostCausesTold) {
        lines_.push_back(fmt::format("  and {} more", reload.causes.size() - i));
        return;
      }
      lines_.push_back(before + descriptionOf(reload.causes[i], kMostOfLine));
      before = "  also: ";
    }
  }

  std::optional<double> ageOf(const ReportedReload& reload) const {
    const ReportedTime time = timeOf(reload);
    // Over a clock that was set back the begin is nearer than nothing.
    const auto& latest = time.until ? time.until : time.since;
    return latest ? std::optional(now_ - *latest) : std::nullopt;
  }
  bool isRecent(double age) const { return age <= options_.since && agoText(age) != kFuture; }

  std::string ageData(const ReportedReload* reload) const {
    const auto age = reload == nullptr ? std::nullopt : ageOf(*reload);
    if (!age || agoText(*age) == kFuture) return "U";
    return fmt::format("{:.0f}s;;;0", std::floor(std::max(*age, 0.0)));
  }

  std::string summary() const {
    if (summaries_.empty()) return "no reload within " + spanText(options_.since);
    const std::size_t shown = std::min(summaries_.size(), kMostSummaries);
    std::string text = fmt::format(
        "{}", fmt::join(summaries_.begin(), summaries_.begin() + static_cast<long>(shown), "; "));
    if (shown < summaries_.size()) text += fmt::format("; and {} more", summaries_.size() - shown);
    return text;
  }

  std::string text() const {
    constexpr std::array<const char*, 4> kNames{"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    std::string text =
        fmt::format("RELOAD {} - {}", kNames[static_cast<std::size_t>(state_)], summary());
    if (!performance_.empty()) text += fmt::format(" | {}", fmt::join(performance_, " "));
    for (std::size_t i = 0; i < std::min(lines_.size(), kMostLines); ++i) text += "\n" + lines_[i];
    return text + "\n";
  }

  const double now_;
  const CheckOptions options_;
  CheckState state_ = CheckState::ok;
  std::vector<std::string> summaries_;  // of that state
  std::vector<std::string> performance_;
  std::vector<std::string> lines_;
};

}  // namespace

CheckResult check(const Report& report, double now, const CheckOptions& options) {
  return Check(now, options).of(report);
}

CheckResult uncheckable(const std::string& problem) {
  return Check(0.0, {}).of({{}, {}, {problem}});
}

}  // namespace Tools
