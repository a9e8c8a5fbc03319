#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Qel/Document.h"
#include "Qel/Entity.h"
#include "Qel/Ptr.h"
#include "Qel/Types.h"
#include "System/ResetCauseHistory.h"

// Documents, and what entities hold, in the words of the domain.
namespace kavratest {

inline constexpr char kHistoryType[] = "System::ResetCauseHistory";
inline constexpr char kRedundancyType[] = "Redundancy::RedundancyStatus";
inline constexpr char kHistoryPath[] = "cell/2/sys/reset/history";
inline constexpr char kRedundancyPath[] = "cell/2/redundancy/status";

// Descriptions by reload index.
using Reloads = std::map<U32, std::vector<std::string>>;

inline Qel::Document historyOf(const Reloads& reloads) {
  Qel::Document::Map map;
  for (const auto& [index, descriptions] : reloads) {
    Qel::Document::List causes;
    for (const std::string& description : descriptions) {
      causes.push_back(
          Qel::Document::Map{{"description", Qel::String(description)}, {"time", 1700000000.5}});
    }
    map.emplace_back(Qel::String(std::to_string(index)),
                     Qel::Document::Map{{"causeQ", std::move(causes)}});
  }
  return Qel::Document::Map{{"type", kHistoryType}, {"rebootHistory", std::move(map)}};
}
inline Qel::Document history(const std::vector<std::string>& latestReload) {
  return historyOf({{0, latestReload}});
}

// Names a history, but holds none.
inline Qel::Document misfitHistory() {
  return Qel::Document::Map{{"type", kHistoryType}, {"rebootHistory", 5U}};
}
inline constexpr char kMisfitProblem[] = "/rebootHistory: expected a map but found an integer";

inline Qel::Document redundancy(U32 protocol, bool switchoverCapable) {
  return Qel::Document::Map{
      {"type", kRedundancyType}, {"protocol", protocol}, {"switchoverCapable", switchoverCapable}};
}

// What a history entity holds; empty for null and for any other entity.
inline Reloads reloadsOf(const Qel::Ptr<Qel::Entity>& entity) {
  Reloads reloads;
  const auto found = Qel::ptrCast<System::ResetCauseHistory>(entity);
  if (!found) return reloads;
  for (auto it = found->rebootHistory().iteratorConst(); it; ++it) {
    auto& descriptions = reloads[it.key()];
    for (auto cause = it->causeQ().iteratorConst(); cause; ++cause) {
      descriptions.push_back(cause.value().description().stdString());
    }
  }
  return reloads;
}

}  // namespace kavratest
