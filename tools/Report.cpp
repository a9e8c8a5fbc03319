#include "tools/Report.h"

#include <fmt/format.h>

#include <map>
#include <utility>

#include "Qel/Number.h"
#include "Qel/String.h"
#include "tools/RecordedVerdict.h"
#include "tools/Requested.h"

namespace Tools {

namespace {

using Qel::Document;

std::string textAt(const Document& cause, std::string_view name) {
  const Document* member = cause.member(name);
  return member == nullptr ? std::string() : member->as<Qel::String>()->stdString();
}

// Publishers that do not know the time record 0.
std::optional<double> knownTime(double seconds) {
  return seconds == 0.0 ? std::nullopt : std::optional(seconds);
}

ReportedCause causeOf(const Document& cause) {
  const Qel::DocumentReader time(*cause.member("time"));
  return {textAt(cause, "description"), knownTime(time.readFiniteNumber()),
          textAt(cause, "recommendedAction"), textAt(cause, "detail")};
}

Document documentOf(const RecordedVerdict& verdict) {
  Document::Map map{{"boot", Qel::String(verdict.boot)}};
  if (verdict.since) map.emplace_back("since", *verdict.since);
  if (verdict.until) map.emplace_back("until", *verdict.until);
  map.emplace_back("confidence", Qel::String(verdict.confidence));
  map.emplace_back("rule", Qel::String(verdict.rule));
  if (!verdict.orElse.empty()) map.emplace_back("orElse", Qel::String(verdict.orElse));
  Document::List evidence;
  for (const std::string& line : verdict.evidence) evidence.emplace_back(Qel::String(line));
  map.emplace_back("evidence", std::move(evidence));
  return map;
}

Document orNull(const std::optional<double>& time) { return time ? Document(*time) : Document(); }

Document documentOf(const ReportedCause& cause) {
  Document::Map map{{"description", Qel::String(cause.description)}, {"time", orNull(cause.time)}};
  for (const auto& [name, text] : {std::pair("recommendedAction", &cause.recommendedAction),
                                   std::pair("detail", &cause.detail)}) {
    if (!text->empty()) map.emplace_back(name, Qel::String(*text));
  }
  if (const auto verdict = verdictIn(cause.detail)) {
    map.emplace_back("verdict", documentOf(*verdict));
  }
  return map;
}

Document documentOf(const ReportedReload& reload, const std::optional<double>& upBefore) {
  Document::List causes;
  for (const ReportedCause& cause : reload.causes) causes.push_back(documentOf(cause));
  Document::Map map{{"reload", reload.index}, {"requested", isRequested(reload)}};
  if (upBefore) map.emplace_back("upBefore", *upBefore);
  map.emplace_back("causes", std::move(causes));
  return map;
}

Document documentOf(const ReportedCell& cell) {
  Document::List reloads;
  for (std::size_t i = 0; i < cell.reloads.size(); ++i) {
    reloads.push_back(documentOf(cell.reloads[i], upBefore(cell.reloads, i)));
  }
  Document::Map map{{"cell", cell.cell ? Document(*cell.cell) : Document()}};
  if (cell.hasAnswered) map.emplace_back("answered", true);
  map.emplace_back("reloads", std::move(reloads));
  return map;
}

}  // namespace

ReportedTime timeOf(const ReportedCause& cause) {
  const auto verdict = verdictIn(cause.detail);
  if (verdict && (verdict->since || verdict->until)) return {verdict->since, verdict->until};
  return {cause.time, cause.time};
}

ReportedTime timeOf(const ReportedReload& reload) {
  return reload.causes.empty() ? ReportedTime() : timeOf(reload.causes.front());
}

std::optional<double> upBefore(const std::vector<ReportedReload>& reloads, std::size_t place) {
  if (place + 1 >= reloads.size() || reloads[place + 1].index != reloads[place].index + 1) {
    return {};
  }
  const auto up = timeOf(reloads[place + 1]).until;
  const auto down = timeOf(reloads[place]).since;
  return up && down && *up <= *down ? std::optional(*down - *up) : std::nullopt;
}

std::string nameOf(const ReportedCell& cell) {
  if (!cell.cell) return "The unit that answered";
  const bool isSupervisor = *cell.cell == 1 || *cell.cell == 2;
  return fmt::format("{} {}", isSupervisor ? "Supervisor" : "Cell", *cell.cell);
}

std::vector<ReportedReload> reloadsOf(const Document& history) {
  std::map<U32, ReportedReload> byIndex;
  for (const auto& [name, reload] : *history.member("rebootHistory")->as<Document::Map>()) {
    const U32 index = Qel::numberOf<U32>(name.view()).value();
    ReportedReload& reported = byIndex[index];
    reported.index = index;
    for (const Document& cause : *reload.member("causeQ")->as<Document::List>()) {
      reported.causes.push_back(causeOf(cause));
    }
  }
  std::vector<ReportedReload> reloads;
  reloads.reserve(byIndex.size());
  for (auto& [index, reload] : byIndex) reloads.push_back(std::move(reload));
  return reloads;
}

Document documentOf(const Report& report, double now) {
  Document::List cells;
  for (const ReportedCell& cell : report.cells) cells.push_back(documentOf(cell));
  return Document::Map{
      {"source", Qel::String(report.source)}, {"now", now}, {"cells", std::move(cells)}};
}

}  // namespace Tools
