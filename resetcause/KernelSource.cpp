#include "resetcause/KernelSource.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <system_error>
#include <utility>

#include "Kavra/FileDescriptor.h"

namespace ResetCause {

namespace {

constexpr std::size_t kMostKernelLines = 20000;
constexpr std::size_t kMostReasonTextOctets = 400;

// One record a read: "6,339,5140900,-;text", as /dev/kmsg gives them, from where it begins.
std::string reasonInLog(const std::string& path) {
  const Kavra::FileDescriptor log(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!log && errno == ENOENT) return {};
  if (!log) throw std::system_error(errno, std::generic_category());
  std::array<char, 8192> record{};
  for (std::size_t count = 0; count < kMostKernelLines; ++count) {
    const ssize_t size = ::read(log.fd(), record.data(), record.size());
    // What was overwritten meanwhile (EPIPE) is followed by the next one.
    if (size < 0 && errno != EINTR && errno != EPIPE) break;
    if (size == 0) break;
    if (size < 0) continue;
    std::string reason = resetReasonIn({record.data(), static_cast<std::size_t>(size)});
    if (!reason.empty()) return reason;
  }
  return {};
}

}  // namespace

std::string resetReasonIn(std::string_view line) {
  constexpr std::string_view kSays = "x86/amd: Previous system reset reason [";
  // What a record of the log has before its text.
  if (!line.starts_with(kSays)) line.remove_prefix(std::min(line.find(';'), line.size() - 1) + 1);
  if (!line.starts_with(kSays)) return {};
  const std::size_t end = line.find("]: ", kSays.size());
  if (end == std::string_view::npos) return {};
  const std::string_view rest = line.substr(end + 3);
  return std::string(trimmed(rest.substr(0, rest.find('\n')).substr(0, kMostReasonTextOctets)));
}

void KernelSource::look(const Boots& boots, Findings& findings) const {
  std::string reason;
  std::size_t count = 0;
  findings.attempt(name(), journal_.place(), [&] {
    journal_.look(boots.id, {"_TRANSPORT=kernel"}, Journal::Way::forward,
                  [&](const Journal::Entry& entry) {
                    reason = resetReasonIn(entry.message());
                    return reason.empty() && ++count < kMostKernelLines;
                  });
  });
  std::string place = journal_.place();
  if (count == 0 && reason.empty() && root_.isThisMachine()) {
    place = root_.path("/dev/kmsg");
    findings.attempt(name(), place, [&] { reason = reasonInLog(place); });
  }
  if (reason.empty()) return;
  findings.add({Kind::kernelReason, "kernel", std::move(place), "Hardware: " + reason});
}

}  // namespace ResetCause
