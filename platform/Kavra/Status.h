#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Qel/Document.h"
#include "Qel/String.h"

namespace Kavra {

// A document that was refused; its path is still served as it was last seen to be good.
struct Quarantine {
  Qel::String path;
  Qel::String why;

  friend bool operator==(const Quarantine& a, const Quarantine& b) = default;
};

// How a state database stands at the moment.
struct Status {
  bool reachable = false;
  Qel::String problem;  // why not; empty when all is well
  // Changes when the database lost what it held; empty where the store has no such thing.
  Qel::String epoch;
  // Names the last change that was seen; empty where the store does not number them.
  Qel::String lastId;
  // Seconds since what is served was published; absent when nothing ever was read.
  std::optional<double> age;
  std::vector<Quarantine> quarantined;

  // What follows is of the live side alone (see Feed.h).
  //
  // Whether anybody follows it: nobody asks after a database that does not matter at present.
  bool followed = false;
  // Whether all that is followed was read once, as far as it is published.
  bool complete = false;
  // Followed paths that are published no longer, and served as they last were.
  std::set<Qel::String> withdrawn;

  // Whether what is served is what the database holds, all of it.
  bool isFresh() const noexcept {
    return reachable && complete && quarantined.empty() && withdrawn.empty();
  }
};

// The status of the database at `url` as a document: {"url", "reachable", "problem", "epoch",
// "lastId", "age", "quarantined"}, null where there is nothing to tell.
Qel::Document::Map documentOf(const Status& status, const Qel::String& url);

// The problem of the database at `url`, which it names once; what is wrong with a file names it.
std::string problemOf(const Status& status, std::string_view url);

}  // namespace Kavra
