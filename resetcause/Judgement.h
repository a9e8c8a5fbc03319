#pragma once

#include <string>
#include <vector>

#include "Qel/Clock.h"
#include "Qel/Document.h"
#include "resetcause/Findings.h"
#include "resetcause/Root.h"
#include "resetcause/Rules.h"
#include "resetcause/Verdict.h"

namespace ResetCause {

// What was found of a reload, and what it was judged to be.
struct Judgement {
  Boots boots = {};
  Verdict verdict = {};
  std::vector<std::string> problems = {};  // sources, or parts of them, that were passed over
  Findings::Marks known = {};              // those that were seen before
  Findings::Marks seen = {};
  bool isKept = false;  // it is what was said earlier in this boot
};

// Looks everywhere and judges. What was kept of an earlier boot is used to tell the evidence of
// older reloads; what was kept of this boot is returned as it was said. Changes nothing.
Judgement judge(const Root& root, const Qel::Clock& clock);

// The rules for the last reload, each with why it matched or not, on what is found now.
std::vector<Explanation> explain(const Root& root, const Qel::Clock& clock);

// Keeps it, so that this boot is not judged again and the next one knows what it has seen. Raises
// std::system_error.
void keep(const Root& root, const Judgement& judgement);

// A judgement as a document, with all texts as they were found.
Qel::Document documentOf(const Judgement& judgement);
// Raises Qel::DocumentException.
Judgement judgementOf(const Qel::Document& document);

}  // namespace ResetCause
