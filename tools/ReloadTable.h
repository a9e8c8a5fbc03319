#pragma once

#include <compare>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Qel/Types.h"
#include "tools/Report.h"

// norvekReloadCauseTable as a manager reads it, see mibs/NorvekGeneralMIB.txt.
namespace Tools {

using ObjectId = std::vector<U32>;

// What an agent says of an object.
struct SnmpBinding {
  enum class Kind { octets, noSuchObject, noSuchInstance, endOfView, other };

  ObjectId name;
  Kind kind = Kind::other;
  std::string octets;  // of an OCTET STRING
};

// An agent that can be asked. It may say anything.
class SnmpPeer {
 public:
  SnmpPeer() = default;
  SnmpPeer(const SnmpPeer&) = delete;
  SnmpPeer& operator=(const SnmpPeer&) = delete;
  virtual ~SnmpPeer();

  // What comes behind each of the names, in their order, then what comes behind that, and so on as
  // long as it pleases the agent. Both raise CommandError where it cannot be asked or refuses.
  virtual std::vector<SnmpBinding> next(const std::vector<ObjectId>& names) = 0;
  virtual SnmpBinding get(const ObjectId& name) = 0;
};

struct ReloadRowKey {
  U32 unit;
  U32 reload;
  U32 cause;

  friend auto operator<=>(const ReloadRowKey&, const ReloadRowKey&) = default;
};

struct ReloadRow {
  std::string description;
  std::optional<double> time;  // seconds since 1970 UTC, where it is known

  friend bool operator==(const ReloadRow&, const ReloadRow&) = default;
};

using ReloadRows = std::map<ReloadRowKey, ReloadRow>;

// The rows that the agent shows; both columns of a row come in one answer. Raises CommandError
// where it has no such table, and for answers that are none: objects that do not increase, are no
// instance of the table or of another type, and more than any such table holds.
ReloadRows reloadRowsOf(SnmpPeer& agent);

// The rows by unit. Unit 0, the one that answers, is that with the same rows under a number of its
// own, if there is one.
std::vector<ReportedCell> cellsOf(const ReloadRows& rows);

// Seconds since 1970 UTC of a DateAndTime (RFC 2579) with an offset from UTC; nothing for any other
// octets, and for the start of 1970, which stands for a time that is not known.
std::optional<double> secondsOfDateAndTime(const std::string& octets);

}  // namespace Tools
