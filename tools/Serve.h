#pragma once

#include <string>

#include "Kavra/StoreUrl.h"
#include "Qel/Clock.h"
#include "Qel/Ptr.h"

namespace Tools {

// Publishes the documents of `file`, a database file, in the database at `url`, follows the file,
// and publishes again what the database lost. Returns after SIGINT or SIGTERM; what was published
// stays. Raises CommandError when there is no such file, StoreException when it cannot be followed.
void serve(const Kavra::StoreUrl& url, const std::string& file,
           const Qel::Ptr<Qel::Clock const>& clock);

}  // namespace Tools
