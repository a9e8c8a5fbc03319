#include "Qel/Journal.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <syslog.h>

#include <cstdlib>

namespace Qel {

bool isJournal(int fd, std::string_view journalStream) {
  struct stat facts {};
  return !journalStream.empty() && ::fstat(fd, &facts) == 0 &&
         journalStream == fmt::format("{}:{}", facts.st_dev, facts.st_ino);
}

std::string_view journalStreamOfEnvironment() {
  const char* stream = std::getenv("JOURNAL_STREAM");
  return stream != nullptr ? stream : "";
}

int severityOf(int traceLevel) {
  constexpr int kSeverities[] = {LOG_ERR, LOG_NOTICE, LOG_INFO};
  return traceLevel >= 0 && traceLevel <= 2 ? kSeverities[traceLevel] : LOG_DEBUG;
}

}  // namespace Qel
