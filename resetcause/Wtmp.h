#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "resetcause/Root.h"

namespace ResetCause {

// The record of starts and ends that /var/log/wtmp keeps among those of sessions, as far as it
// tells of boots: in the order in which they were written.
struct WtmpRecord {
  enum class What { boot, shutdown };
  What what;
  double time;

  friend bool operator==(const WtmpRecord&, const WtmpRecord&) = default;
};

// Reads the octets of such a file, 384 for each record. What is none of these two, and a piece of a
// record at the end, is passed over.
std::vector<WtmpRecord> readWtmp(std::string_view octets);

// The records of a machine, of the last 16 MiB of its file; none where there is no file. Raises as
// contentOf() does.
std::vector<WtmpRecord> wtmpOf(const Root& root);

// The same, split at this boot: what was written before it started.
struct WtmpBefore {
  std::optional<double> start;     // of the boot before
  std::optional<double> shutdown;  // its end, where that is on record
};
// `start` is when this boot started, `previousStart` when the one before did, where that is known.
WtmpBefore beforeBoot(const std::vector<WtmpRecord>& records, double start,
                      const std::optional<double>& previousStart);

}  // namespace ResetCause
