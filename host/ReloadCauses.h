#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Qel/Types.h"
#include "System/ResetInstance.h"

namespace Host {

// What the table shows of a unit's last reload, as far as a notification tells of it.
struct ReloadCauses {
  struct Cause {
    std::string description;
    U32 time;  // as norvekReloadTime: whole seconds since 1970 UTC, modulo 2^32
    friend bool operator==(const Cause& a, const Cause& b) = default;
  };

  U32 unit = 0;
  U32 count = 0;             // of all causes
  std::uint64_t digest = 0;  // of all that is shown of them; the same from process to process
  std::vector<Cause> first;  // the first of them, as many as fit into one message

  friend bool operator==(const ReloadCauses& a, const ReloadCauses& b) = default;
};

// Octets that the variables of the causes take at most in a message. With them, the longest names
// of a user and a context and the longest engine ids and signatures it fits into a packet of an
// Ethernet (IPv4). The longest description that the table shows, of 1024 octets, fits as well.
inline constexpr std::size_t kMostCauseOctets = 1110;
// Of a description's and a time's variable, beside the description: names, types and lengths.
inline constexpr std::size_t kCauseOverhead = 80;

ReloadCauses reloadCausesOf(U32 unit, const System::ResetInstance& reload);

}  // namespace Host
