#pragma once

#include <string_view>

namespace Qel {

// What the journal (systemd) wants to see in front of a line, "<SEVERITY>", and of whom.

// Whether what is written to `fd` is read by the journal: `journalStream`, as JOURNAL_STREAM tells
// it, is the device and inode of the file that leads there.
bool isJournal(int fd, std::string_view journalStream);

// JOURNAL_STREAM of the environment, or "".
std::string_view journalStreamOfEnvironment();

// The severity of syslog(3) of a trace level: of 0 an error, of 1 a notice, of 2 information, of
// any other what helps to debug.
int severityOf(int traceLevel);

}  // namespace Qel
