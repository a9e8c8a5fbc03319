#include "tools/Show.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string>
#include <string_view>

#include "Kavra/Json/Text.h"
#include "Qel/Escape.h"
#include "Qel/Utf8.h"
#include "tools/Errors.h"

namespace Tools {

namespace {

// JSON lets most control characters stand as they are, which a terminal obeys. They are in texts
// alone, where they may be spelt otherwise.
std::string withoutControls(std::string_view json) {
  std::string spelt;
  while (!json.empty()) {
    const std::string_view character = json.substr(0, Qel::utf8CharacterSize(json));
    const char32_t point = Qel::utf8CodePoint(character);
    const bool isSpelt = character != "\n" && Qel::isControl(point);
    spelt +=
        isSpelt ? fmt::format("\\u{:04x}", static_cast<unsigned>(point)) : std::string(character);
    json.remove_prefix(character.size());
  }
  return spelt;
}

}  // namespace

Report reportOf(const SnmpOptions& options, const std::optional<U32>& cell) {
  SnmpAgent agent(options);
  Report report{options.agent, cellsOf(reloadRowsOf(agent)), {}};
  if (!cell) return report;
  std::erase_if(report.cells, [&](const ReportedCell& each) {
    return *cell == 0 ? !each.hasAnswered : each.cell != cell;
  });
  if (report.cells.empty()) {
    throw CommandError(
        fmt::format("{}: the agent shows no cause of cell {}", options.agent, *cell));
  }
  return report;
}

void show(const Report& report, const std::optional<ReportStyle>& style, const Qel::Clock& clock,
          std::ostream& out) {
  const double now = clock.now();
  if (style) {
    out << textOf(report, now, *style);
  } else {
    const auto document = documentOf(report, now);
    out << withoutControls(Kavra::Json::write(document, Kavra::Json::Form::pretty)) << '\n';
  }
  if (!report.problems.empty()) {
    throw CommandError(fmt::format("{}", fmt::join(report.problems, "; ")));
  }
}

}  // namespace Tools
