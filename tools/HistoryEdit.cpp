#include "tools/HistoryEdit.h"

#include <map>
#include <string>
#include <utility>

#include "Qel/Number.h"
#include "tools/Errors.h"

namespace Tools {

namespace {

using Qel::Document;

constexpr char kCauses[] = "causeQ";
constexpr char kReloads[] = "rebootHistory";

// Reloads by index, in ascending order.
using Reloads = std::map<unsigned long, Document>;

Reloads reloadsOf(const Document* history) {
  const Document* member = history == nullptr ? nullptr : history->member(kReloads);
  Reloads reloads;
  if (member == nullptr) return reloads;
  for (const auto& [name, reload] : *member->as<Document::Map>()) {
    reloads.emplace(Qel::numberOf<unsigned long>(name.view()).value(), reload);
  }
  return reloads;
}

Document historyOf(const Reloads& reloads) {
  Document::Map map;
  for (const auto& [index, reload] : reloads) {
    map.emplace_back(Qel::String(std::to_string(index)), reload);
  }
  return Document::Map{{"type", "System::ResetCauseHistory"}, {kReloads, std::move(map)}};
}

Document causeOf(const Cause& cause) {
  return Document::Map{{"description", cause.description}, {"time", cause.time}};
}

Document reloadOf(Document::List causes) {
  return Document::Map{{kCauses, Document(std::move(causes))}};
}

}  // namespace

Document withReload(const Document* present, const std::vector<Cause>& causes) {
  Reloads reloads;
  for (const auto& [index, reload] : reloadsOf(present)) {
    if (index < kOldestReload) reloads.emplace(index + 1, reload);
  }
  Document::List list;
  for (const Cause& cause : causes) list.push_back(causeOf(cause));
  reloads.emplace(0, reloadOf(std::move(list)));
  return historyOf(reloads);
}

Document withCause(const Document* present, const Cause& cause) {
  Reloads reloads = reloadsOf(present);
  const auto latest = reloads.find(0);
  if (latest == reloads.end()) {
    throw CommandError("no reload 0 is recorded that a cause could be added to");
  }
  Document::List list = *latest->second.member(kCauses)->as<Document::List>();
  list.push_back(causeOf(cause));
  latest->second = reloadOf(std::move(list));
  return historyOf(reloads);
}

}  // namespace Tools
