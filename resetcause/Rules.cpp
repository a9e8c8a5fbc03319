#include "resetcause/Rules.h"

#include <fmt/format.h>

#include <algorithm>
#include <bitset>
#include <initializer_list>
#include <iterator>
#include <string_view>
#include <tuple>
#include <utility>

namespace ResetCause {

namespace {

using Kinds = std::bitset<kKinds>;

constexpr std::size_t at(Kind kind) { return static_cast<std::size_t>(kind); }

Kinds setOf(std::initializer_list<Kind> kinds) {
  Kinds set;
  for (const Kind kind : kinds) set.set(at(kind));
  return set;
}

// All that was found of one reload.
class Found {
 public:
  Found(const Boots& boots, const std::vector<Evidence>& evidence)
      : boots_(boots), evidence_(evidence) {
    const auto order = [](const Evidence& one) {
      return std::tie(one.kind, one.source, one.place, one.text, one.user, one.way, one.time);
    };
    std::ranges::sort(evidence_, {}, order);
    for (const Evidence& one : evidence_) kinds_.set(at(one.kind));
  }

  const Boots& boots() const noexcept { return boots_; }
  bool has(Kind kind) const { return kinds_.test(at(kind)); }
  const Kinds& kinds() const noexcept { return kinds_; }
  // The first of a kind that was found.
  const Evidence& first(Kind kind) const {
    return *std::ranges::find(evidence_, kind, &Evidence::kind);
  }
  std::vector<Evidence> of(const Kinds& kinds) const {
    std::vector<Evidence> some;
    std::ranges::copy_if(evidence_, std::back_inserter(some),
                         [&](const Evidence& one) { return kinds.test(at(one.kind)); });
    return some;
  }

 private:
  const Boots& boots_;
  std::vector<Evidence> evidence_;
  Kinds kinds_;
};

bool holds(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

// A row of the page: it matches where something of `any` was found and nothing of `none`.
struct Rule {
  const char* number;
  const char* name;
  Kinds any;
  Kinds none;
  bool (*also)(const Found&);  // a further condition; null for none
  void (*tell)(const Found&, Cause&);
};

void tellPanic(const Found& found, Cause& cause) {
  const Evidence& dump = found.first(Kind::panicDump);
  const char* how = holds(dump.text, "sysrq triggered crash") ? "forced by an operator, " : "";
  cause.text = fmt::format("Kernel panic: {}{}", how, dump.text);
  cause.confidence = Confidence::certain;
  cause.time = dump.time;
  cause.action = "Keep the dump and report it";
}

void tellWatchdog(const Found& found, Cause& cause) {
  cause.text = "Watchdog expired";
  if (found.has(Kind::initCrashed)) cause.text += "; init had crashed";
  if (found.has(Kind::logind)) cause.text += "; the reload that was requested hung";
  cause.confidence = Confidence::certain;
  for (const Kind kind : {Kind::bmcWatchdog, Kind::softwareWatchdog, Kind::watchdog}) {
    if (!cause.time && found.has(kind)) cause.time = found.first(kind).time;
  }
  cause.action = "Look at the end of the last boot's journal for what stood still";
}

void tellMaker(const Found& found, Cause& cause) {
  cause.text = found.first(Kind::maker).text;
  cause.confidence = Confidence::certain;
  cause.time = found.first(Kind::maker).time;
}

void tellHalt(const Found& found, Cause& cause) {
  const Evidence& dump = found.first(Kind::haltDump);
  cause.text = holds(dump.text, "temperature") ? "Over temperature: " + dump.text
                                               : "Immediate restart without shutdown";
  cause.confidence = Confidence::certain;
  cause.time = dump.time;
}

void tellRequest(const Found& found, Cause& cause) {
  const Evidence& request = found.first(Kind::request);
  cause.text = fmt::format("Reload requested by {}: {}", request.user, request.text);
  cause.confidence = Confidence::certain;
  cause.time = request.time;
}

void tellPowerKey(const Found& found, Cause& cause) {
  cause.text = "Power button pressed";
  cause.confidence = Confidence::certain;
  cause.time = found.first(Kind::powerKey).time;
}

void tellLogind(const Found& found, Cause& cause) {
  const Evidence& record = found.first(Kind::logind);
  cause.text = record.way == "power-off" || record.way == "halt" ? "Powered off by request"
                                                                 : "Reload requested";
  if (record.way == "kexec") cause.text += " (kexec)";
  if (!record.text.empty()) cause.text += ": " + record.text;
  cause.confidence = Confidence::certain;
  cause.time = record.time;
}

void tellCtrlAltDel(const Found& found, Cause& cause) {
  cause.text = "Ctrl-Alt-Del on the console";
  cause.confidence = Confidence::likely;
  cause.time = found.first(Kind::ctrlAltDel).time;
}

void tellUnit(const Found& found, Cause& cause) {
  const Evidence& unit = found.first(Kind::failedUnit);
  cause.text = fmt::format("Service {} failed (inferred)", unit.text);
  cause.confidence = Confidence::likely;
  cause.time = unit.time;
  cause.action = fmt::format("Find out why {} failed", unit.text);
}

void tellOrderly(const Found& found, Cause& cause) {
  cause.text = "Orderly reload, requester unknown";
  cause.confidence = Confidence::likely;
  for (const Kind kind : {Kind::target, Kind::wtmpShutdown, Kind::journalStopped}) {
    if (!cause.time && found.has(kind)) cause.time = found.first(kind).time;
  }
}

void tellHardware(const Found& found, Cause& cause) {
  for (const Kind kind : {Kind::hardwareFault, Kind::bmcRestart, Kind::kernelReason}) {
    if (cause.text.empty() && found.has(kind)) {
      cause.text = found.first(kind).text;
      cause.time = found.first(kind).time;
    }
  }
  cause.confidence = Confidence::likely;
}

bool isPowerOff(const Found& found) { return found.first(Kind::logind).way == "power-off"; }

const std::vector<Rule>& rules() {
  using enum Kind;
  static const std::vector<Rule> kRules{
      {"1", "a panic", setOf({panicDump}), {}, nullptr, tellPanic},
      {"2",
       "a watchdog",
       setOf({watchdog, bmcWatchdog, softwareWatchdog}),
       {},
       nullptr,
       tellWatchdog},
      {"2m", "the maker's own", setOf({maker}), {}, nullptr, tellMaker},
      {"3", "a restart without shutdown", setOf({haltDump}),
       setOf({logind, target, journalStopped}), nullptr, tellHalt},
      {"4", "a request with a reason", setOf({request}), {}, nullptr, tellRequest},
      {"5",
       "the power button",
       setOf({powerKey}),
       {},
       [](const Found& found) { return found.has(logind) && isPowerOff(found); },
       tellPowerKey},
      {"6", "a request", setOf({logind}), {}, nullptr, tellLogind},
      {"7", "Ctrl-Alt-Del", setOf({ctrlAltDel}), setOf({logind}), nullptr, tellCtrlAltDel},
      {"8", "a failed unit", setOf({failedUnit}), setOf({logind}), nullptr, tellUnit},
      {"9", "an orderly end", setOf({target, journalStopped, wtmpShutdown}), setOf({logind}),
       nullptr, tellOrderly},
      {"10",
       "what the hardware says",
       setOf({hardwareFault, bmcRestart, kernelReason}),
       {},
       nullptr,
       tellHardware},
  };
  return kRules;
}

// Rows 4 to 9 tell of a way down that takes its time.
bool takesTime(const Rule& rule) {
  const char first = rule.number[0];
  return rule.number[1] == '\0' && first >= '4' && first <= '9';
}

// It was on its way down, and nothing says that it arrived.
bool wasCutShort(const Found& found) {
  return (found.has(Kind::logind) || found.has(Kind::target)) && !found.has(Kind::journalStopped) &&
         !found.has(Kind::wtmpShutdown);
}

bool matches(const Rule& rule, const Found& found) {
  return (found.kinds() & rule.any).any() && (found.kinds() & rule.none).none() &&
         (rule.also == nullptr || rule.also(found));
}

Cause causeOf(const Rule& rule, const Found& found) {
  Cause cause{.rule = rule.number, .since = found.boots().lastSign};
  rule.tell(found, cause);
  cause.evidence = found.of(rule.any);
  if (takesTime(rule) && wasCutShort(found)) {
    cause.rule += "+";
    cause.text += ", but reset or power lost before it finished";
    if (cause.time) cause.since = cause.time;
    cause.time.reset();
  }
  return cause;
}

Cause withoutEvidence(const Boots& boots) {
  if (!boots.hasPrevious()) {
    return {.rule = "12", .text = "Unknown: no record of an earlier boot", .time = boots.start};
  }
  return {
      .rule = "11",
      .text = "Power lost, hard reset or forced restart",
      .confidence = Confidence::possible,
      .since = boots.lastSign,
      .elseBe = "these look the same without a management controller or the kernel's last words"};
}

std::string namesOf(const Kinds& kinds) {
  std::vector<std::string_view> names;
  for (std::size_t i = 0; i < kKinds; ++i) {
    if (kinds.test(i)) names.push_back(nameOf(static_cast<Kind>(i)));
  }
  return fmt::format("{}", fmt::join(names, ", "));
}

std::string reasonOf(const Rule& rule, const Found& found) {
  if ((found.kinds() & rule.any).none()) return "not found: " + namesOf(rule.any);
  if ((found.kinds() & rule.none).any()) {
    return "against it: " + namesOf(found.kinds() & rule.none);
  }
  if (!matches(rule, found)) return "no power-off was recorded behind it";
  return "found: " + namesOf(found.kinds() & rule.any);
}

}  // namespace

Verdict verdictOf(const Boots& boots, const std::vector<Evidence>& evidence) {
  const Found found(boots, evidence);
  std::vector<Cause> causes;
  for (const Rule& rule : rules()) {
    if (matches(rule, found)) causes.push_back(causeOf(rule, found));
  }
  if (causes.empty()) causes.push_back(withoutEvidence(boots));
  Verdict verdict{std::move(causes.front()), {}};
  verdict.beside.assign(std::make_move_iterator(causes.begin() + 1),
                        std::make_move_iterator(causes.end()));
  return verdict;
}

std::vector<Explanation> explanationsOf(const Boots& boots, const std::vector<Evidence>& evidence) {
  const Found found(boots, evidence);
  std::vector<Explanation> lines;
  bool any = false;
  for (const Rule& rule : rules()) {
    const bool matched = matches(rule, found);
    any = any || matched;
    lines.push_back({rule.number, rule.name, matched, reasonOf(rule, found)});
  }
  const char* before = any ? "a rule before it matched" : nullptr;
  const bool known = boots.hasPrevious();
  lines.push_back({"11", "nothing was found", !any && known,
                   before != nullptr ? before
                   : known           ? "nothing tells"
                                     : "no earlier boot is known"});
  lines.push_back({"12", "no earlier boot", !any && !known,
                   before != nullptr ? before
                   : known           ? "an earlier boot is known"
                                     : "the first one"});
  return lines;
}

}  // namespace ResetCause
