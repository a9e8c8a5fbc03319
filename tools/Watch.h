#pragma once

#include <ostream>
#include <string>

#include "Kavra/StoreUrl.h"
#include "Qel/Clock.h"
#include "Qel/Ptr.h"

namespace Tools {

// Prints {"path": ..., "document": ...} for each document whose path begins with `prefix`: first
// what is published already, then each change, with null for what is no longer published. Each line
// is flushed. Returns after SIGINT or SIGTERM. Raises CommandError when `out` takes no more, and
// StoreException when the database cannot be followed.
void watch(const Kavra::StoreUrl& url, const std::string& prefix,
           const Qel::Ptr<Qel::Clock const>& clock, std::ostream& out);

}  // namespace Tools
