#include "resetcause/BootOrder.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <map>
#include <string_view>

#include "Qel/Number.h"
#include "resetcause/Heartbeat.h"
#include "resetcause/StateFile.h"
#include "resetcause/Wtmp.h"

namespace ResetCause {

namespace {

using JournalBoots = std::vector<Journal::Boot>;

constexpr std::size_t kMostStatOctets = std::size_t{4} << 20;

// "btime SECONDS" in /proc/stat: when the kernel started.
std::optional<double> kernelStart(const Root& root) {
  const auto text = contentOf(root.path("/proc/stat"), kMostStatOctets);
  constexpr std::string_view kName = "\nbtime ";
  const std::size_t at = text ? text->find(kName) : std::string::npos;
  if (at == std::string::npos) return std::nullopt;
  const std::string_view rest = std::string_view(*text).substr(at + kName.size());
  const auto start = Qel::numberOf<double>(rest.substr(0, rest.find('\n')));
  return start && isTime(*start) ? start : std::nullopt;
}

const Journal::Boot* bootIn(const JournalBoots& boots, const std::string& id) {
  const auto found = std::ranges::find(boots, id, &Journal::Boot::id);
  return found == boots.end() ? nullptr : &*found;
}

// The last of each series, and of these the one whose clock is the latest.
std::optional<Journal::Boot> latestOf(const JournalBoots& boots) {
  std::map<std::string, Journal::Boot> lasts;
  for (const Journal::Boot& boot : boots) {
    const auto [last, isFirst] = lasts.try_emplace(boot.series, boot);
    if (!isFirst && boot.first > last->second.first) last->second = boot;
  }
  std::optional<Journal::Boot> latest;
  for (const auto& [series, boot] : lasts) {
    if (!latest || boot.last > latest->last) latest = boot;
  }
  return latest;
}

// What the heartbeat adds: the boot before, where the journal has lost it, and how long it ran.
void addBeat(const Root& root, const JournalBoots& known, Boots& boots, Findings& findings) {
  std::optional<Beat> beat;
  findings.attempt("heartbeat", root.path(kStateFolder),
                   [&] { beat = Heartbeat(root).lastBefore(boots.id); });
  if (!beat) return;
  // It lies there until the next beat, perhaps for several boots.
  const bool isNew = findings.isNew(bootMark(beat->boot)) && bootIn(known, beat->boot) == nullptr;
  // Where the memory does not tell which of the two was later, the clock does.
  const bool isBetween = beat->time > boots.lastSign && beat->time < boots.start;
  const bool isNewer = isNew && (isBetween || findings.wasKnown(bootMark(boots.previousId)));
  if (boots.previousId.empty() || isNewer) {
    boots.previousId = beat->boot;
    boots.previousStart.reset();
    boots.lastSign = beat->time;
    boots.hasJournal = false;
  } else if (boots.previousId == beat->boot && boots.lastSign < beat->time) {
    boots.lastSign = beat->time;
  }
}

using WtmpRecords = std::vector<WtmpRecord>;

// Whether a start in wtmp is that of a boot whose kernel started at `other`: none is nearer to it.
bool isStartOf(double other, double start, const WtmpRecords& records) {
  constexpr double kUntilWritten = 120;  // seconds
  const double between = std::abs(start - other);
  return between <= kUntilWritten && std::ranges::none_of(records, [&](const WtmpRecord& one) {
           return one.what == WtmpRecord::What::boot && std::abs(one.time - other) < between;
         });
}

// Whether it is that of another boot, after which the one before lost its own there.
bool isOfAnother(double start, const WtmpRecords& records, const JournalBoots& known,
                 const Boots& boots, const Findings& findings) {
  const auto judged = findings.lastStart();
  const bool isJudged = judged && findings.lastJudged() != boots.previousId;
  if (isJudged && isStartOf(*judged, start, records)) return true;
  return std::ranges::any_of(known, [&](const Journal::Boot& boot) {
    return boot.id != boots.previousId && boot.id != boots.id &&
           isStartOf(boot.start, start, records);
  });
}

void addWtmp(const Root& root, const JournalBoots& known, Boots& boots, Findings& findings) {
  if (boots.previousStart) return;
  findings.attempt("wtmp", root.path("/var/log/wtmp"), [&] {
    const WtmpRecords records = wtmpOf(root);
    const auto start = beforeBoot(records, boots.start, boots.previousStart).start;
    if (start && !isOfAnother(*start, records, known, boots, findings)) boots.previousStart = start;
  });
}

}  // namespace

std::string bootIdOf(const Root& root) {
  const auto text = contentOf(root.path("/proc/sys/kernel/random/boot_id"), 64);
  std::string id(trimmed(text.value_or("")));
  std::erase(id, '-');
  if (text && !isId(id)) throw SourceException("it is no id of a boot");
  return id;
}

std::optional<Journal::Boot> bootBefore(const JournalBoots& boots, const std::string& id,
                                        const Findings& findings) {
  const auto judged = findings.lastJudged();
  const Journal::Boot* const last = judged ? bootIn(boots, *judged) : nullptr;
  const auto mayBe = [&](const Journal::Boot& boot) {
    if (boot.id == id) return false;
    if (!judged || boot.id == judged) return true;
    const bool isEarlier =
        last != nullptr && boot.series == last->series && boot.first < last->first;
    return !isEarlier && !findings.wasKnown(bootMark(boot.id));
  };
  const auto latestWhere = [&](const auto& holds) {
    JournalBoots some;
    std::ranges::copy_if(boots, std::back_inserter(some),
                         [&](const Journal::Boot& boot) { return mayBe(boot) && holds(boot); });
    return latestOf(some);
  };
  if (const Journal::Boot* own = bootIn(boots, id)) {
    auto before = latestWhere([&](const Journal::Boot& boot) {
      return boot.series == own->series && boot.first < own->first;
    });
    if (before) return before;
  }
  auto unseen =
      latestWhere([&](const Journal::Boot& boot) { return !findings.wasKnown(bootMark(boot.id)); });
  return unseen ? unseen : latestWhere([](const Journal::Boot& /*boot*/) { return true; });
}

Boots bootsOf(const Root& root, const Journal& journal, const Qel::Clock& clock,
              Findings& findings) {
  Boots boots;
  findings.attempt("kernel", root.path("/proc"), [&] { boots.id = bootIdOf(root); });
  JournalBoots known;
  findings.attempt("journal", journal.place(), [&] { known = journal.boots(findings); });
  if (boots.id.empty()) {
    if (const auto last = latestOf(known)) boots.id = last->id;
  }
  for (const Journal::Boot& boot : known) findings.isNew(bootMark(boot.id));
  findings.isNew(bootMark(boots.id));
  std::optional<double> start;
  findings.attempt("kernel", root.path("/proc/stat"), [&] { start = kernelStart(root); });
  const Journal::Boot* own = bootIn(known, boots.id);
  boots.start = own != nullptr ? own->start : start.value_or(clock.now());
  if (const auto before = bootBefore(known, boots.id, findings)) {
    boots.previousId = before->id;
    boots.previousStart = before->start;
    boots.lastSign = before->last;
    boots.hasJournal = true;
  } else if (const auto judged = findings.lastJudged(); judged && judged != boots.id) {
    // Its entries never came to the disk, or are gone.
    boots.previousId = *judged;
    boots.previousStart = findings.lastStart();
    boots.lastSign = boots.previousStart;
  }
  addBeat(root, known, boots, findings);
  addWtmp(root, known, boots, findings);
  return boots;
}

}  // namespace ResetCause
