#include "tools/Show.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <string>
#include <string_view>

#include "Kavra/Json/Text.h"
#include "tools/Errors.h"

namespace Tools {

namespace {

// JSON lets DEL and the control characters of eight bits stand as they are, which a terminal obeys.
// They are in texts alone, where they may be spelt otherwise.
std::string withoutControls(std::string_view json) {
  std::string spelt;
  for (std::size_t i = 0; i < json.size(); ++i) {
    const unsigned char octet = static_cast<unsigned char>(json[i]);
    const unsigned char next = i + 1 < json.size() ? static_cast<unsigned char>(json[i + 1]) : 0;
    if (octet == 0x7f) {
      spelt += "\\u007f";
    } else if (octet == 0xc2 && next < 0xa0) {
      spelt += fmt::format("\\u{:04x}", next);
      ++i;
    } else {
      spelt += json[i];
    }
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
