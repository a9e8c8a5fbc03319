#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "resetcause/Evidence.h"

namespace ResetCause {

// What the sources found of one reload, and what stood in their way.
//
// Marks are how a machine knows again what it has seen: a source that may find the same at a later
// boot gives each thing a mark, which is kept with the verdict. What was marked when an earlier
// boot was judged belongs to an earlier reload.
class Findings {
 public:
  using Marks = std::set<std::string>;

  Findings() = default;
  // `known` are the marks that were seen when an earlier boot was judged.
  explicit Findings(Marks known) : known_(std::move(known)) {}

  // Texts are cut to 4096 octets, impossible times left away; of one kind twenty pieces are taken.
  void add(Evidence one);
  const std::vector<Evidence>& evidence() const noexcept { return evidence_; }

  // Sees a mark; true unless an earlier boot had it.
  bool isNew(const std::string& mark);
  bool wasKnown(const std::string& mark) const { return known_.contains(mark); }
  // What follows `prefix` in the one mark of an earlier boot that begins with it.
  std::optional<std::string> knownAfter(std::string_view prefix) const;
  // The boot that was judged last, and when its kernel started; null where none was.
  std::optional<std::string> lastJudged() const;
  std::optional<double> lastStart() const;
  const Marks& seen() const noexcept { return seen_; }

  // Each names the source and the place, and is passed over: "journal: /var/...: why". Named once.
  void problem(std::string_view source, std::string_view place, std::string_view why);
  const std::vector<std::string>& problems() const noexcept { return problems_; }
  // Runs a step; what it raises because of the outside becomes a problem.
  void attempt(std::string_view source, std::string_view place, const std::function<void()>& step);

 private:
  std::vector<Evidence> evidence_;
  std::array<std::size_t, kKinds> counts_{};  // of each kind, those that were left out as well
  std::vector<std::string> problems_;
  Marks known_;
  Marks seen_;
};

// The marks of a boot: that it was there, that it was judged, and of that one when it started.
std::string bootMark(const std::string& id);
std::string judgedMark(const std::string& id);
std::string startMark(double start);

}  // namespace ResetCause
