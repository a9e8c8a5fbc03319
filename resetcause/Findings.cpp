#include "resetcause/Findings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include "Qel/Failure.h"
#include "Qel/Number.h"

namespace ResetCause {

namespace {

constexpr std::size_t kMostOfAKind = 20;
constexpr std::size_t kMostEvidenceOctets = 4096;
constexpr std::size_t kMostProblems = 100;
constexpr std::size_t kMostMarks = 10000;
constexpr char kStart[] = "start ";

void cut(std::string& text) {
  if (text.size() > kMostEvidenceOctets) text.resize(kMostEvidenceOctets);
}

}  // namespace

void Findings::add(Evidence one) {
  std::size_t& count = counts_[static_cast<std::size_t>(one.kind)];
  if (++count > kMostOfAKind) {
    if (count == kMostOfAKind + 1) {
      problem(one.source, nameOf(one.kind), "there is more of it: the rest is left out");
    }
    return;
  }
  cut(one.text);
  cut(one.place);
  cut(one.user);
  if (one.time && !isTime(*one.time)) one.time.reset();
  evidence_.push_back(std::move(one));
}

bool Findings::isNew(const std::string& mark) {
  if (seen_.size() < kMostMarks) seen_.insert(mark);
  return !wasKnown(mark);
}

std::optional<std::string> Findings::knownAfter(std::string_view prefix) const {
  const auto found = known_.lower_bound(std::string(prefix));
  if (found == known_.end() || !found->starts_with(prefix)) return std::nullopt;
  return found->substr(prefix.size());
}

std::optional<std::string> Findings::lastJudged() const { return knownAfter(judgedMark("")); }

std::optional<double> Findings::lastStart() const {
  const auto start = knownAfter(kStart);
  return start ? Qel::numberOf<double>(*start) : std::nullopt;
}

void Findings::problem(std::string_view source, std::string_view place, std::string_view why) {
  std::string text = fmt::format("{}: {}: {}", source, place, why);
  const bool isNamed = std::ranges::find(problems_, text) != problems_.end();
  if (!isNamed && problems_.size() < kMostProblems) problems_.push_back(std::move(text));
}

void Findings::attempt(std::string_view source, std::string_view place,
                       const std::function<void()>& step) {
  if (const auto why = Qel::failureOf(step)) problem(source, place, *why);
}

std::string bootMark(const std::string& id) { return "boot " + id; }
std::string judgedMark(const std::string& id) { return "judged " + id; }
std::string startMark(double start) { return fmt::format("{}{}", kStart, start); }

}  // namespace ResetCause
