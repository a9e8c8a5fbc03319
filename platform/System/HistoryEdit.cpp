#include "System/HistoryEdit.h"

#include <map>
#include <string>
#include <utility>

#include "Qel/Exception.h"
#include "Qel/Number.h"

namespace System {

namespace {

using Qel::Document;

constexpr char kHistoryCauses[] = "causeQ";
constexpr char kHistoryReloads[] = "rebootHistory";

// Reloads by index, in ascending order.
using DocumentsByIndex = std::map<unsigned long, Document>;

DocumentsByIndex reloadsOf(const Document* history) {
  const Document* member = history == nullptr ? nullptr : history->member(kHistoryReloads);
  DocumentsByIndex reloads;
  if (member == nullptr) return reloads;
  for (const auto& [name, reload] : *member->as<Document::Map>()) {
    reloads.emplace(Qel::numberOf<unsigned long>(name.view()).value(), reload);
  }
  return reloads;
}

Document historyOf(const DocumentsByIndex& reloads) {
  Document::Map map;
  for (const auto& [index, reload] : reloads) {
    map.emplace_back(Qel::String(std::to_string(index)), reload);
  }
  return Document::Map{{"type", "System::ResetCauseHistory"}, {kHistoryReloads, std::move(map)}};
}

Document documentOf(const RecordedCause& cause) {
  Document::Map map{{"description", cause.description}, {"time", cause.time}};
  if (!cause.recommendedAction.empty())
    map.emplace_back("recommendedAction", cause.recommendedAction);
  if (!cause.detail.empty()) map.emplace_back("detail", cause.detail);
  return map;
}

Document reloadOf(Document::List causes) {
  return Document::Map{{kHistoryCauses, Document(std::move(causes))}};
}

}  // namespace

Document withReload(const Document* present, const std::vector<RecordedCause>& causes) {
  DocumentsByIndex reloads;
  for (const auto& [index, reload] : reloadsOf(present)) {
    if (index < kOldestReload) reloads.emplace(index + 1, reload);
  }
  Document::List list;
  for (const RecordedCause& cause : causes) list.push_back(documentOf(cause));
  reloads.emplace(0, reloadOf(std::move(list)));
  return historyOf(reloads);
}

Document withCause(const Document* present, const RecordedCause& cause) {
  DocumentsByIndex reloads = reloadsOf(present);
  const auto latest = reloads.find(0);
  if (latest == reloads.end()) {
    throw Qel::RangeException("no reload 0 is recorded that a cause could be added to");
  }
  Document::List list = *latest->second.member(kHistoryCauses)->as<Document::List>();
  list.push_back(documentOf(cause));
  latest->second = reloadOf(std::move(list));
  return historyOf(reloads);
}

}  // namespace System
