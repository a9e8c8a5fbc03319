#include "resetcause/Report.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cmath>
#include <ctime>
#include <string_view>

#include "Qel/Escape.h"

namespace ResetCause {

namespace {

std::string utcText(double seconds) {
  const auto whole = static_cast<std::time_t>(std::floor(seconds));
  return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(whole));
}

std::string evidenceLine(const Evidence& one) {
  std::string line = fmt::format("{}: {}", nameOf(one.kind), Qel::printableLine(one.place));
  if (!one.text.empty()) line += ": " + Qel::printableLine(one.text);
  if (!one.user.empty()) line += ", by " + Qel::printableLine(one.user);
  if (one.time) line += " (" + utcText(*one.time) + ")";
  if (one.isOld) line += ", as after an earlier reload";
  return line + "\n";
}

}  // namespace

std::string whenText(const Cause& cause, const Boots& boots) {
  if (cause.time) return utcText(*cause.time);
  if (!cause.since) return "before " + utcText(boots.start);
  if (*cause.since > boots.start) return "after " + utcText(*cause.since) + ", by the clock then";
  return fmt::format("between {} and {}", utcText(*cause.since), utcText(boots.start));
}

std::string detailText(const Cause& cause, const Boots& boots) {
  std::string text = fmt::format("when: {}\nhow sure: {}\nrule: {}\n", whenText(cause, boots),
                                 nameOf(cause.confidence), cause.rule);
  if (!cause.elseBe.empty()) text += "but: " + cause.elseBe + "\n";
  for (const Evidence& one : cause.evidence) text += evidenceLine(one);
  return text;
}

void print(const Judgement& judgement, std::ostream& out) {
  const auto printCause = [&](const Cause& cause, const char* before) {
    out << before << Qel::printableLine(cause.text) << '\n';
    std::string detail = detailText(cause, judgement.boots);
    if (!cause.action.empty()) detail += "to do: " + Qel::printableLine(cause.action) + "\n";
    for (std::string_view rest = detail; !rest.empty();) {
      const std::size_t end = rest.find('\n');
      out << "  " << rest.substr(0, end) << '\n';
      rest.remove_prefix(end + 1);
    }
  };
  printCause(judgement.verdict.cause, "");
  for (const Cause& cause : judgement.verdict.beside) printCause(cause, "beside it: ");
  for (const std::string& note : notesOf(judgement.boots)) out << "note: " << note << '\n';
  for (const std::string& problem : judgement.problems) {
    out << "passed over: " << Qel::printableLine(problem) << '\n';
  }
  if (judgement.isKept) out << "This is what was said when this boot was judged.\n";
}

void print(const std::vector<Explanation>& lines, std::ostream& out) {
  for (const Explanation& line : lines) {
    out << fmt::format("{:>2}  {:<26} {:<8} {}\n", line.rule, line.name,
                       line.matched ? "matched" : "-", line.reason);
  }
}

}  // namespace ResetCause
