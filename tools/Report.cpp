#include "tools/Report.h"

#include <map>
#include <utility>

#include "Qel/Number.h"
#include "Qel/String.h"

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

Document orNull(const std::optional<double>& time) { return time ? Document(*time) : Document(); }

Document documentOf(const ReportedCause& cause) {
  Document::Map map{{"description", Qel::String(cause.description)}, {"time", orNull(cause.time)}};
  for (const auto& [name, text] : {std::pair("recommendedAction", &cause.recommendedAction),
                                   std::pair("detail", &cause.detail)}) {
    if (!text->empty()) map.emplace_back(name, Qel::String(*text));
  }
  return map;
}

Document documentOf(const ReportedReload& reload) {
  Document::List causes;
  for (const ReportedCause& cause : reload.causes) causes.push_back(documentOf(cause));
  return Document::Map{{"reload", reload.index}, {"causes", std::move(causes)}};
}

Document documentOf(const ReportedCell& cell) {
  Document::List reloads;
  for (const ReportedReload& reload : cell.reloads) reloads.push_back(documentOf(reload));
  Document::Map map{{"cell", cell.cell ? Document(*cell.cell) : Document()}};
  if (cell.hasAnswered) map.emplace_back("answered", true);
  map.emplace_back("reloads", std::move(reloads));
  return map;
}

}  // namespace

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
