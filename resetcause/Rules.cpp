#include "resetcause/Rules.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string_view>
#include <tuple>
#include <utility>

namespace ResetCause {

namespace {

// A set of kinds.
using Kinds = std::uint32_t;

constexpr Kinds bitOf(Kind kind) { return Kinds{1} << static_cast<unsigned>(kind); }

template <class... Each>
constexpr Kinds anyOf(Each... kinds) {
  return (bitOf(kinds) | ... | 0U);
}

// Signs that the machine came to its end in order; and those that it was on its way there as well.
constexpr Kinds kEnded = anyOf(Kind::journalStopped, Kind::wtmpShutdown);
constexpr Kinds kOrderly = anyOf(Kind::target) | kEnded;

// All that was found of one reload.
class Found {
 public:
  Found(const Boots& boots, const std::vector<Evidence>& evidence)
      : boots_(boots), evidence_(evidence) {
    // Whatever the order in which it was found, the verdict is the same.
    std::ranges::sort(evidence_, {}, [](const Evidence& one) {
      return std::tie(one.kind, one.isOld, one.source, one.place, one.text, one.user, one.way,
                      one.time);
    });
    for (const Evidence& one : evidence_) kinds_ |= bitOf(one.kind);
  }

  const Boots& boots() const noexcept { return boots_; }
  Kinds kinds() const noexcept { return kinds_; }
  bool has(Kinds any) const noexcept { return (kinds_ & any) != 0; }
  bool has(Kind kind) const noexcept { return has(bitOf(kind)); }
  // The first of a kind that was found.
  const Evidence& first(Kind kind) const {
    return *std::ranges::find(evidence_, kind, &Evidence::kind);
  }
  // The last of a kind, by their times. The machine may have gone down several times before it came
  // so far as to judge: the last time counts, and what follows within a crash is of that crash.
  Evidence last(Kind kind) const {
    constexpr double kCrash = 10;  // seconds
    auto some = of(bitOf(kind));
    const auto timeOf = [](const Evidence& one) { return one.time.value_or(0); };
    std::ranges::stable_sort(some, {}, timeOf);
    return *std::ranges::lower_bound(some, timeOf(some.back()) - kCrash, {}, timeOf);
  }
  // The last time of the first of the kinds, in their order, that tells one.
  template <class... Each>
  std::optional<double> timeOf(Each... kinds) const {
    std::optional<double> time;
    for (const Kind kind : {kinds...}) {
      if (!time && has(kind)) time = last(kind).time;
    }
    return time;
  }
  std::vector<Evidence> of(Kinds kinds) const {
    std::vector<Evidence> some;
    std::ranges::copy_if(evidence_, std::back_inserter(some),
                         [&](const Evidence& one) { return (kinds & bitOf(one.kind)) != 0; });
    return some;
  }

 private:
  const Boots& boots_;
  std::vector<Evidence> evidence_;
  Kinds kinds_ = 0;
};

// A row: it matches where something of `any` was found, nothing of `none`, and `also` holds.
struct Rule {
  const char* number;
  const char* name;
  Kinds any;
  Kinds none;
  bool (*also)(const Found&);  // null for no further condition
  const char* otherwise;       // what is said where that does not hold
  void (*tell)(const Found&, Cause&);
};

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

void tellPanic(const Found& found, Cause& cause) {
  const Evidence dump = found.last(Kind::panicDump);
  cause.text = "Kernel panic: " + dump.text;
  if (contains(dump.text, "sysrq triggered crash")) cause.text += " (forced by an operator)";
  cause.confidence = Confidence::certain;
  cause.time = dump.time;
  cause.action = "Keep the dump and report it";
}

// A register of the hardware may go on telling of an earlier reload.
void tellDoubt(const Evidence& one, Cause& cause) {
  if (!one.isOld) return;
  cause.confidence = Confidence::possible;
  cause.elseBe = "it told the same after an earlier reload, and may not have been set again";
}

void tellWatchdog(const Found& found, Cause& cause) {
  cause.text = "Watchdog expired";
  if (found.has(Kind::initCrashed)) cause.text += "; init had crashed";
  if (found.has(Kind::logind)) {
    cause.text += "; the reload that was requested hung";
    cause.since = found.first(Kind::logind).time;
  }
  cause.confidence = Confidence::certain;
  cause.time = std::max(found.timeOf(Kind::bmcWatchdog), found.timeOf(Kind::softwareWatchdog));
  cause.action = "Look at the end of the last boot's journal for what stood still";
  // An end in order is no watchdog's, unless it hung behind that.
  const bool isRegisterAlone = !found.has(anyOf(Kind::bmcWatchdog, Kind::softwareWatchdog));
  if (isRegisterAlone && found.has(kEnded)) tellDoubt(found.first(Kind::watchdog), cause);
}

void tellMaker(const Found& found, Cause& cause) {
  const Evidence& maker = found.first(Kind::maker);
  cause.text = maker.text;
  cause.confidence = Confidence::certain;
  cause.time = maker.time;
}

void tellHalt(const Found& found, Cause& cause) {
  const Evidence dump = found.last(Kind::haltDump);
  cause.confidence = Confidence::certain;
  cause.time = dump.time;
  if (contains(dump.text, "emperature")) {
    cause.text = "Over temperature: " + dump.text;
    cause.action = "Look at fans, filters and the air around the device";
    return;
  }
  const bool isRestart = dump.way.empty() || dump.way == "reboot";
  cause.text = fmt::format("Immediate {} without shutdown", isRestart ? "restart" : dump.way);
  if (!found.boots().hasJournal) {
    cause.elseBe = "no journal of that boot was kept, and an orderly end leaves the same";
  } else if (dump.way.empty()) {
    cause.elseBe = "the end of the dump is missing: a forced power-off or halt leaves the same";
  }
  if (!cause.elseBe.empty()) cause.confidence = Confidence::possible;
}

void tellRequest(const Found& found, Cause& cause) {
  constexpr double kLong = 600;  // seconds
  const Evidence& request = found.first(Kind::request);
  cause.text = fmt::format("Reload requested by {}: {}", request.user, request.text);
  cause.confidence = Confidence::certain;
  cause.time = request.time;
  if (!found.has(anyOf(Kind::logind) | kOrderly)) {
    cause.confidence = Confidence::likely;
    cause.elseBe =
        "nothing tells that the machine began to go down before it was reset or lost power";
  }
  const auto end =
      found.timeOf(Kind::logind, Kind::target, Kind::wtmpShutdown, Kind::journalStopped);
  if (!end || !request.time || *end <= *request.time + kLong) return;
  cause.confidence = Confidence::likely;
  cause.elseBe = "the request was long before it, and somebody else may have asked since";
}

void tellPowerKey(const Found& found, Cause& cause) {
  cause.text = "Power button pressed";
  cause.confidence = Confidence::certain;
  cause.time = found.first(Kind::powerKey).time;
}

void tellLogind(const Found& found, Cause& cause) {
  const Evidence& record = found.first(Kind::logind);
  const bool isOff = record.way == "power-off" || record.way == "halt";
  cause.text = isOff ? "Powered off by request" : "Reload requested";
  if (record.way == "kexec") cause.text += " (kexec)";
  if (!record.text.empty()) cause.text += ": " + record.text;
  cause.confidence = Confidence::certain;
  cause.time = record.time;
}

void tellCtrlAltDel(const Found& found, Cause& cause) {
  cause.text = "Ctrl-Alt-Del on the console";
  cause.confidence = Confidence::likely;
  cause.time = found.first(Kind::ctrlAltDel).time;
  cause.elseBe = "the same signal to init by a program of root's leaves the same";
}

void tellUnit(const Found& found, Cause& cause) {
  const Evidence& unit = found.first(Kind::failedUnit);
  cause.text = fmt::format("Service {} failed (inferred)", unit.text);
  cause.confidence = Confidence::likely;
  cause.time = unit.time;
  cause.action = fmt::format("Find out why {} failed", unit.text);
  cause.elseBe = "somebody may have asked for it just then, without the login manager";
}

void tellOrderly(const Found& found, Cause& cause) {
  cause.text = "Orderly reload, requester unknown";
  cause.confidence = Confidence::likely;
  cause.time = found.timeOf(Kind::target, Kind::wtmpShutdown, Kind::journalStopped);
  cause.elseBe = "a command, a key or a unit that failed: none of them left its name";
}

void tellHardware(const Found& found, Cause& cause) {
  const auto told = found.of(anyOf(Kind::hardwareFault, Kind::bmcRestart, Kind::kernelReason));
  const auto fresh = std::ranges::find(told, false, &Evidence::isOld);
  const Evidence& one = fresh == told.end() ? told.front() : *fresh;
  cause.confidence = Confidence::likely;
  cause.text = one.text;
  cause.time = one.time;
  tellDoubt(one, cause);
}

// A kernel started by another one finds the register as that one did.
bool isNoLeftover(const Found& found) {
  if (found.has(anyOf(Kind::bmcWatchdog, Kind::softwareWatchdog))) return true;
  const bool isKexec = std::ranges::any_of(found.of(anyOf(Kind::logind, Kind::target)),
                                           [](const Evidence& one) { return one.way == "kexec"; });
  return !isKexec || !found.first(Kind::watchdog).isOld;
}

// A request that was taken back otherwise, or not obeyed, does not explain what came much later.
bool wasCarriedOut(const Found& found) {
  constexpr double kSoon = 120;  // seconds
  using enum Kind;
  if (found.has(anyOf(logind) | kOrderly)) return true;
  const auto time = found.first(request).time;
  const auto last = found.boots().lastSign;
  return !time || !last || *last <= *time + kSoon;
}

// What a register goes on telling explains nothing that something else explains.
bool isNewOrAlone(const Found& found);

bool isPowerOff(const Found& found) {
  return found.has(Kind::logind) && found.first(Kind::logind).way == "power-off";
}

using enum Kind;

// Units fail on a machine that goes on.
bool wentDown(const Found& found) { return found.has(kOrderly); }

// docs/reset-causes.md has the same table.
constexpr std::array<Rule, 11> kRules{
    {{"1", "a panic", anyOf(panicDump), 0, nullptr, nullptr, tellPanic},
     {"2", "a watchdog", anyOf(watchdog, bmcWatchdog, softwareWatchdog), 0, isNoLeftover,
      "the register was not cleared by a start through kexec", tellWatchdog},
     {"2m", "the maker's own", anyOf(maker), 0, nullptr, nullptr, tellMaker},
     {"3", "an end without shutdown", anyOf(haltDump), anyOf(panicDump, logind) | kOrderly, nullptr,
      nullptr, tellHalt},
     {"4", "a request with a reason", anyOf(request), 0, wasCarriedOut,
      "the machine went on long after it", tellRequest},
     {"5", "the power button", anyOf(powerKey), 0, isPowerOff, "no power-off was recorded after it",
      tellPowerKey},
     {"6", "a request", anyOf(logind), 0, nullptr, nullptr, tellLogind},
     {"7", "Ctrl-Alt-Del", anyOf(ctrlAltDel), anyOf(logind), nullptr, nullptr, tellCtrlAltDel},
     {"8", "a failed unit", anyOf(failedUnit), anyOf(logind, ctrlAltDel), wentDown,
      "nothing tells that the machine was told to go down", tellUnit},
     {"9", "an orderly end", kOrderly, anyOf(logind, ctrlAltDel, failedUnit, request), nullptr,
      nullptr, tellOrderly},
     {"10", "what the hardware says", anyOf(hardwareFault, bmcRestart, kernelReason), 0,
      isNewOrAlone, "it told the same before", tellHardware}}};

// Rows 4 to 9 tell of a way down that takes its time.
bool takesTime(const Rule& rule) {
  const std::string_view number = rule.number;
  return number.size() == 1 && number >= "4" && number <= "9";
}

// It was on its way down, and nothing says that it arrived.
bool wasCutShort(const Found& found) {
  return found.has(anyOf(logind, target)) && !found.has(kEnded);
}

bool matches(const Rule& rule, const Found& found) {
  return found.has(rule.any) && !found.has(rule.none) && (rule.also == nullptr || rule.also(found));
}

bool isNewOrAlone(const Found& found) {
  const Rule& hardware = kRules.back();
  return std::ranges::any_of(found.of(hardware.any),
                             [](const Evidence& one) { return !one.isOld; }) ||
         std::none_of(kRules.begin(), kRules.end() - 1,
                      [&](const Rule& rule) { return matches(rule, found); });
}

Cause causeOf(const Rule& rule, const Found& found) {
  Cause cause{.rule = rule.number, .since = found.boots().lastSign};
  rule.tell(found, cause);
  if (cause.text.empty()) cause.text = "A reason without a text";
  cause.evidence = found.of(rule.any);
  // What row 2 adds to its text.
  if (rule.tell == tellWatchdog) cause.evidence = found.of(rule.any | anyOf(initCrashed));
  if (takesTime(rule) && wasCutShort(found)) {
    cause.rule += "+";
    cause.text += ", but reset or power lost before it finished";
    if (cause.time) cause.since = cause.time;
    cause.time.reset();
  }
  if (cause.time) cause.since.reset();
  return cause;
}

Cause withoutEvidence(const Found& found) {
  const Boots& boots = found.boots();
  if (!boots.hasPrevious()) {
    return {.rule = "12", .text = "Unknown: no record of an earlier boot", .time = boots.start};
  }
  Cause cause{.rule = "11",
              .text = "Power lost, hard reset or forced restart",
              .confidence = Confidence::possible,
              .since = boots.lastSign,
              .elseBe = "loss of power, the reset line and a forced restart leave the same traces"};
  if (found.has(initCrashed)) cause.text += "; init had crashed";
  cause.evidence = found.of(anyOf(initCrashed));
  return cause;
}

std::string namesOf(Kinds kinds) {
  std::vector<std::string_view> names;
  for (std::size_t i = 0; i < kKinds; ++i) {
    const auto kind = static_cast<Kind>(i);
    if ((kinds & bitOf(kind)) != 0) names.push_back(nameOf(kind));
  }
  return fmt::format("{}", fmt::join(names, ", "));
}

std::string reasonOf(const Rule& rule, const Found& found) {
  if (!found.has(rule.any)) return "not found: " + namesOf(rule.any);
  if (found.has(rule.none)) return "against it: " + namesOf(found.kinds() & rule.none);
  if (!matches(rule, found)) return rule.otherwise;
  return "found: " + namesOf(found.kinds() & rule.any);
}

Explanation explanationOf(const Rule& rule, const Found& found) {
  return {rule.number, rule.name, matches(rule, found), reasonOf(rule, found)};
}

// The row that adds to others.
Explanation additionOf(const Found& found) {
  Explanation line{"+", "cut short (adds to 4 to 9)", false, ""};
  if (!found.has(anyOf(logind, target))) {
    line.reason = "not found: " + namesOf(anyOf(logind, target));
  } else if (!wasCutShort(found)) {
    line.reason = "against it: " + namesOf(found.kinds() & kEnded);
  } else {
    line.matched = true;
    line.reason = "not found: " + namesOf(kEnded);
  }
  return line;
}

}  // namespace

Verdict verdictOf(const Boots& boots, const std::vector<Evidence>& evidence) {
  const Found found(boots, evidence);
  std::vector<Cause> causes;
  for (const Rule& rule : kRules) {
    if (matches(rule, found)) causes.push_back(causeOf(rule, found));
  }
  if (causes.empty()) causes.push_back(withoutEvidence(found));
  Verdict verdict{std::move(causes.front()), {}};
  verdict.beside.assign(std::make_move_iterator(causes.begin() + 1),
                        std::make_move_iterator(causes.end()));
  return verdict;
}

std::vector<Explanation> explanationsOf(const Boots& boots, const std::vector<Evidence>& evidence) {
  const Found found(boots, evidence);
  std::vector<Explanation> lines;
  bool any = false;
  for (const Rule& rule : kRules) {
    lines.push_back(explanationOf(rule, found));
    any = any || lines.back().matched;
    if (std::string_view(rule.number) == "9") lines.push_back(additionOf(found));
  }
  const bool known = boots.hasPrevious();
  const std::string before = "a rule before it matched";
  lines.push_back({"11", "nothing was found", !any && known,
                   any     ? before
                   : known ? "nothing tells"
                           : "no earlier boot is known"});
  lines.push_back({"12", "no earlier boot", !any && !known,
                   any     ? before
                   : known ? "an earlier boot is known"
                           : "no earlier boot is known"});
  return lines;
}

}  // namespace ResetCause
