#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "resetcause/Root.h"

namespace ResetCause {

// Who asked for the machine to go down, and why.
struct Request {
  std::string boot;  // in which it was asked
  std::string user;
  std::string reason;
  double time = 0;
};

// The most that a reason may have, so that it is shown whole beside the user's name.
inline constexpr std::size_t kMostReasonOctets = 512;

// The record of requests, one for each boot, which outlives the boot. Whoever may write in its
// folder may ask; a record that is neither root's nor in a folder of the user's own counts under
// the name of its owner.
class Requests {
 public:
  explicit Requests(const Root& root) : root_(root) {}

  // Puts it on the disk. Raises std::system_error.
  void add(const Request& request) const;
  // Takes it back. Raises std::system_error.
  void remove(const std::string& boot) const;
  // That of a boot; nothing where there is none. Raises as readState() does.
  std::optional<Request> of(const std::string& boot) const;
  // Forgets those of all boots but these two. What cannot be removed stays.
  void keepOnly(const std::string& boot, const std::string& previousBoot) const;

  std::string path(const std::string& boot) const;

 private:
  std::string folder() const;

  const Root root_;
};

// The name of whoever is logged in, also behind sudo and pkexec; the number where there is none.
std::string loginUser();

}  // namespace ResetCause
