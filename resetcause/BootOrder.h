#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Qel/Clock.h"
#include "resetcause/Findings.h"
#include "resetcause/Journal.h"
#include "resetcause/Root.h"
#include "resetcause/Verdict.h"

namespace ResetCause {

// The id of the boot that runs; empty where the kernel tells none, as on the disk of another
// machine. Raises SourceException, std::system_error.
std::string bootIdOf(const Root& root);

// The boot before `id`, of those that the journal tells of: the numbers of its entries decide,
// never the clock. Where a file was begun anew they do not compare; then it is the latest that was
// not there already when an earlier boot was judged, or else that boot. What was there before that
// one, or stands before it, never is: null where the journal has lost the boot that was judged.
std::optional<Journal::Boot> bootBefore(const std::vector<Journal::Boot>& boots,
                                        const std::string& id, const Findings& findings);

// The two boots of the last reload: by the journal, or else by what was judged last, by the
// heartbeat, or by wtmp. Where the kernel tells no boot, this one is the last of the journal.
Boots bootsOf(const Root& root, const Journal& journal, const Qel::Clock& clock,
              Findings& findings);

}  // namespace ResetCause
