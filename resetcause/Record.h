#pragma once

#include <string>

#include "Kavra/Store.h"
#include "Qel/Types.h"
#include "resetcause/Judgement.h"

namespace ResetCause {

// Records a judged reload in the history of a cell, with all its causes in order; not again where
// that history has this boot's reload. A cause has the time at which it was, or else the begin of
// its window, or the boot's start. Raises Kavra::StoreException, and SourceException where what is
// published is no history.
void record(Kavra::Store& store, U32 cell, const Judgement& judgement);

// The text of a cause as the table can answer it: one line of at most 1024 octets.
std::string descriptionOf(const Cause& cause);

}  // namespace ResetCause
