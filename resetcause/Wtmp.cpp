#include "resetcause/Wtmp.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utmpx.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <string>
#include <system_error>

#include "Kavra/FileContent.h"
#include "Kavra/FileDescriptor.h"

namespace ResetCause {

namespace {

constexpr std::size_t kRecordOctets = 384;
static_assert(sizeof(utmpx) == kRecordOctets);
constexpr std::size_t kMostWtmpOctets = kRecordOctets * 43690;  // 16 MiB

std::string_view userOf(const utmpx& record) {
  return {record.ut_user, ::strnlen(record.ut_user, sizeof record.ut_user)};
}

// Whether a boot record is that of this boot. It is told by the nearer start, since the clock may
// stand anywhere.
bool isThisBoot(double time, double start, const std::optional<double>& previousStart) {
  if (!previousStart) return true;
  return std::abs(time - start) <= std::abs(time - *previousStart);
}

}  // namespace

std::vector<WtmpRecord> readWtmp(std::string_view octets) {
  std::vector<WtmpRecord> records;
  for (; octets.size() >= kRecordOctets; octets.remove_prefix(kRecordOctets)) {
    utmpx record{};
    std::memcpy(&record, octets.data(), kRecordOctets);
    const double time =
        static_cast<double>(record.ut_tv.tv_sec) + static_cast<double>(record.ut_tv.tv_usec) / 1e6;
    if (record.ut_type == BOOT_TIME) records.push_back({WtmpRecord::What::boot, time});
    if (record.ut_type == RUN_LVL && userOf(record) == "shutdown") {
      records.push_back({WtmpRecord::What::shutdown, time});
    }
  }
  return records;
}

std::vector<WtmpRecord> wtmpOf(const Root& root) {
  const std::string path = root.path("/var/log/wtmp");
  const Kavra::FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file && errno == ENOENT) return {};
  struct stat status {};
  if (!file || ::fstat(file.fd(), &status) != 0) {
    throw std::system_error(errno, std::generic_category());
  }
  if (!S_ISREG(status.st_mode)) throw SourceException("it is no file");
  const auto size = static_cast<std::size_t>(status.st_size);
  if (size > kMostWtmpOctets) {
    const std::size_t whole = size - size % kRecordOctets;
    ::lseek(file.fd(), static_cast<off_t>(whole - kMostWtmpOctets), SEEK_SET);
  }
  // It may grow meanwhile.
  const auto text = Kavra::readUpTo(file, kMostWtmpOctets + std::size_t{1000} * kRecordOctets);
  if (!text) throw SourceException("it is too long");
  return readWtmp(*text);
}

WtmpBefore beforeBoot(const std::vector<WtmpRecord>& records, double start,
                      const std::optional<double>& previousStart) {
  auto end = records.rbegin();
  // The last record may be that of this boot, which has not shut down yet.
  if (end != records.rend() && end->what == WtmpRecord::What::boot &&
      isThisBoot(end->time, start, previousStart)) {
    ++end;
  }
  WtmpBefore before;
  if (end != records.rend() && end->what == WtmpRecord::What::shutdown) before.shutdown = end->time;
  const auto boot = std::find_if(end, records.rend(), [](const WtmpRecord& one) {
    return one.what == WtmpRecord::What::boot;
  });
  if (boot != records.rend()) before.start = boot->time;
  return before;
}

}  // namespace ResetCause
