#pragma once

#include <ostream>
#include <string>

#include "Kavra/StoreUrl.h"
#include "Qel/Clock.h"
#include "Qel/Ptr.h"

namespace Tools {

// Publishes the documents of `file`, a database file, in the database at `url`, follows the file,
// and publishes again what the database lost. Below `prefix`, which ends in '/', the database then
// holds nothing else; without one it owns the paths that the file has, and had meanwhile. A file
// that is not there yet is waited for, with a line on `err`.
//
// Returns after SIGINT or SIGTERM; what was published stays. Raises StoreException when the file
// cannot be followed, CommandError when it is the database itself.
void serve(const Kavra::StoreUrl& url, const std::string& file, const std::string& prefix,
           const Qel::Ptr<Qel::Clock const>& clock, std::ostream& err);

}  // namespace Tools
