#include "resetcause/Judgement.h"

#include <memory>
#include <optional>
#include <utility>

#include "Kavra/Json/Text.h"
#include "Qel/Failure.h"
#include "resetcause/BmcSource.h"
#include "resetcause/BootOrder.h"
#include "resetcause/Journal.h"
#include "resetcause/JournalSource.h"
#include "resetcause/KernelSource.h"
#include "resetcause/MakerSource.h"
#include "resetcause/PstoreSource.h"
#include "resetcause/RequestSource.h"
#include "resetcause/StateFile.h"
#include "resetcause/WatchdogSource.h"
#include "resetcause/WtmpSource.h"

namespace ResetCause {

namespace {

std::string keptPath(const Root& root) {
  return root.path(std::string(kStateFolder) + "/judged.json");
}

// What was kept last; nothing, and a problem, where that cannot be read.
std::optional<Judgement> keptOf(const Root& root, Findings& problems) {
  std::optional<Judgement> kept;
  problems.attempt("memory", keptPath(root), [&] {
    if (const auto document = readState(keptPath(root))) kept = judgementOf(*document);
  });
  return kept;
}

// The boot that runs, as far as that is known without looking at the journal.
std::string runningBoot(const Root& root) {
  std::string id;
  (void)Qel::failureOf([&] { id = bootIdOf(root); });
  return id;
}

bool isOf(const std::optional<Judgement>& kept, const std::string& boot) {
  return kept && !boot.empty() && kept->boots.id == boot;
}

struct Looked {
  Boots boots;
  Findings findings;
};

Looked lookEverywhere(const Root& root, const Qel::Clock& clock, Findings::Marks known) {
  Looked looked{{}, Findings(std::move(known))};
  const Journal journal(root, looked.findings);
  looked.boots = bootsOf(root, journal, clock, looked.findings);
  std::vector<std::unique_ptr<Source>> sources;
  sources.push_back(std::make_unique<PstoreSource>(root));
  sources.push_back(std::make_unique<WatchdogSource>(root));
  sources.push_back(std::make_unique<BmcSource>(root));
  sources.push_back(std::make_unique<MakerSource>(root));
  sources.push_back(std::make_unique<RequestSource>(root));
  sources.push_back(std::make_unique<JournalSource>(journal));
  sources.push_back(std::make_unique<WtmpSource>(root));
  sources.push_back(std::make_unique<KernelSource>(root, journal));
  for (const auto& source : sources) {
    looked.findings.attempt(source->name(), "the whole",
                            [&] { source->look(looked.boots, looked.findings); });
  }
  if (!journal.isWhole()) {
    looked.findings.problem("journal", journal.place(), "a part of it cannot be read");
  }
  return looked;
}

Judgement saidAgain(Judgement kept) {
  kept.isKept = true;
  return kept;
}

}  // namespace

Judgement judge(const Root& root, const Qel::Clock& clock) {
  Findings problems;
  auto kept = keptOf(root, problems);
  if (isOf(kept, runningBoot(root))) return saidAgain(*std::move(kept));
  const Findings::Marks known = kept ? kept->seen : Findings::Marks();
  const Looked looked = lookEverywhere(root, clock, known);
  // On the disk of another machine only the journal tells which boot is its last.
  if (isOf(kept, looked.boots.id)) return saidAgain(*std::move(kept));
  Judgement judgement{.boots = looked.boots,
                      .verdict = verdictOf(looked.boots, looked.findings.evidence()),
                      .problems = problems.problems(),
                      .known = known,
                      .seen = looked.findings.seen()};
  judgement.problems.insert(judgement.problems.end(), looked.findings.problems().begin(),
                            looked.findings.problems().end());
  judgement.seen.insert(judgedMark(looked.boots.id));
  judgement.seen.insert(startMark(looked.boots.start));
  return judgement;
}

std::vector<Explanation> explain(const Root& root, const Qel::Clock& clock) {
  Findings problems;
  const auto kept = keptOf(root, problems);
  bool isJudged = isOf(kept, runningBoot(root));
  Looked looked = lookEverywhere(root, clock,
                                 !kept      ? Findings::Marks()
                                 : isJudged ? kept->known
                                            : kept->seen);
  // On the disk of another machine only the journal tells which boot is its last.
  if (!isJudged && isOf(kept, looked.boots.id)) {
    isJudged = true;
    looked = lookEverywhere(root, clock, kept->known);
  }
  std::vector<Explanation> lines{
      {"0", "judged already", isJudged,
       isJudged ? "what was said then is kept; the rest is what is found now" : "not yet"}};
  for (Explanation& line : explanationsOf(looked.boots, looked.findings.evidence())) {
    lines.push_back(std::move(line));
  }
  return lines;
}

void keep(const Root& root, const Judgement& judgement) {
  writeState(keptPath(root),
             Kavra::Json::write(documentOf(judgement), Kavra::Json::Form::pretty) + "\n");
}

}  // namespace ResetCause
