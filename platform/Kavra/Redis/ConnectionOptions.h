#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Kavra/Redis/Address.h"
#include "Kavra/Redis/Command.h"

namespace Kavra::Redis {

// By what a server knows its user.
struct Login {
  std::string user;
  std::string password;

  // Two lines, the user and the password; nothing else. Raises StoreException, never quoting what
  // the file holds. A file that others may read is traced at level 0.
  static Login ofFile(const std::string& path);
  friend bool operator==(const Login& a, const Login& b) = default;
};

// A Redis server, and who is asking there.
struct ConnectionOptions {
  Address address;
  std::optional<Login> login;
  std::string loginFile = {};  // where it came from; empty for nowhere

  // What every connection sends first; each command is answered by one reply.
  std::vector<Command> loginCommands() const;
};

}  // namespace Kavra::Redis
