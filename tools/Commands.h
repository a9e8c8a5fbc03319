#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "Kavra/Store.h"
#include "Qel/Clock.h"
#include "Qel/Document.h"
#include "Qel/Ptr.h"
#include "Qel/Types.h"
#include "tools/Report.h"

namespace Tools {

// The commands that read and write a state database as a whole, each in one step. Each raises
// CommandError, or what the store raises, and has then changed and printed nothing. One that makes
// the database says so on `err`.
class Commands {
 public:
  Commands(const Qel::Ptr<Kavra::Store>& store, const std::string& url,
           const Qel::Ptr<Qel::Clock const>& clock, std::ostream& out, std::ostream& err)
      : store_(store), url_(url), clock_(clock), out_(out), err_(err) {}

  // Prints the paths that begin with `prefix`, a line each, in alphabetical order. Where there are
  // none, `err` may have a suggestion.
  void ls(const std::string& prefix);
  // The same with when each was published, and how long ago, in front; "-" where nobody knows.
  void lsLong(const std::string& prefix, bool utc);
  // Prints the document at `path`.
  void get(const std::string& path);
  // `source` is where the JSON comes from, for messages. A history or redundancy status of a cell
  // is of that type; at any other path every type is taken.
  void put(const std::string& path, const std::string& json, const std::string& source);
  void del(const std::string& path);

  // `times` pair up with `causes` in order; causes without one get the present time.
  void recordReset(U32 cell, const std::vector<std::string>& causes,
                   const std::vector<double>& times);
  void addCause(U32 cell, const std::string& cause, const std::optional<double>& time);
  // What is not given stays as it is published, or else is 0 and false.
  void setRedundancy(U32 cell, const std::optional<U32>& protocol,
                     const std::optional<bool>& switchoverCapable);

  // The reloads of every cell that has published a history, or of that cell. A history that cannot
  // be read is among the report's problems.
  Report report(const std::optional<U32>& cell);

  // Prints how the database stands; with how the peer's does, where there is one. Then raises
  // CommandError where one of them cannot be read.
  void status();
  void status(const Qel::Ptr<Kavra::Store>& peer, const std::string& peerUrl);

 private:
  // Replaces the document at `path` by what `edit` makes of the present one, or of null. A present
  // document that is no good one of `type` is an error.
  void edit(const std::string& path, const char* type,
            const std::function<Qel::Document(const Qel::Document*)>& edit);

  // Publishes, and says so where that made the database.
  void update(const std::string& path, const Kavra::Store::Edit& edit);
  void tellCreated();
  Kavra::Store::Listing listing(const std::string& prefix);
  // After there was no such document.
  [[noreturn]] void throwNotPublished(const std::string& path);

  const Qel::Ptr<Kavra::Store> store_;
  const std::string url_;
  const Qel::Ptr<Qel::Clock const> clock_;
  std::ostream& out_;
  std::ostream& err_;
};

}  // namespace Tools
