#include "Kavra/Status.h"

#include <fmt/format.h>

#include <cmath>
#include <utility>

namespace Kavra {

namespace {

using Qel::Document;

Document textOrNull(const Qel::String& text) { return text.empty() ? Document() : Document(text); }

// Whole milliseconds are as much as anybody reads.
Document secondsOrNull(const std::optional<double>& seconds) {
  return seconds ? Document(std::round(*seconds * 1000) / 1000) : Document();
}

}  // namespace

Document::Map documentOf(const Status& status, const Qel::String& url) {
  Document::List quarantined;
  for (const Quarantine& refused : status.quarantined) {
    quarantined.push_back(Document::Map{{"path", refused.path}, {"why", refused.why}});
  }
  return {{"url", url},
          {"reachable", status.reachable},
          {"problem", textOrNull(status.problem)},
          {"epoch", textOrNull(status.epoch)},
          {"lastId", textOrNull(status.lastId)},
          {"age", secondsOrNull(status.age)},
          {"quarantined", std::move(quarantined)}};
}

std::string problemOf(const Status& status, std::string_view url) {
  const std::string_view problem = status.problem.view();
  return problem.starts_with(url) ? std::string(problem) : fmt::format("{}: {}", url, problem);
}

}  // namespace Kavra
