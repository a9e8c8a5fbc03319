#include "resetcause/Heartbeat.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "Kavra/FileDescriptor.h"
#include "Qel/Document.h"
#include "Qel/Failure.h"
#include "resetcause/Evidence.h"
#include "resetcause/StateFile.h"

namespace ResetCause {

namespace {

constexpr std::size_t kBeatOctets = 96;
constexpr mode_t kBeatMode = 0644;

std::optional<Beat> beatIn(const std::string& path) {
  const auto document = readState(path);
  if (!document) return std::nullopt;
  const Qel::DocumentReader reader(*document);
  Beat beat{reader.member("boot").readText(kBeatOctets).stdString(),
            reader.member("time").readFiniteNumber()};
  if (!isId(beat.boot)) throw SourceException("it is of no boot");
  if (!isTime(beat.time)) throw SourceException("it has no time");
  return beat;
}

}  // namespace

std::string Heartbeat::path() const {
  return root_.path(std::string(kStateFolder) + "/heartbeat.json");
}
std::string Heartbeat::pathBefore() const {
  return root_.path(std::string(kStateFolder) + "/heartbeat-before.json");
}

void Heartbeat::beat(const std::string& boot, const Qel::Clock& clock) const {
  std::optional<Beat> last;
  // One that cannot be read tells nothing, and is written over; what was aside is of a boot before
  // that of it.
  if (Qel::failureOf([&] { last = beatIn(path()); })) ::unlink(pathBefore().c_str());
  if (last && last->boot != boot) std::rename(path().c_str(), pathBefore().c_str());
  const std::string text =
      fmt::format("{:<{}}\n", fmt::format(R"({{"boot": "{}", "time": {:.3f}}})", boot, clock.now()),
                  kBeatOctets - 1);
  std::filesystem::create_directories(root_.path(kStateFolder));
  const Kavra::FileDescriptor file(
      ::open(path().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kBeatMode));
  const bool done =
      file &&
      ::pwrite(file.fd(), text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) &&
      ::ftruncate(file.fd(), static_cast<off_t>(text.size())) == 0 && ::fdatasync(file.fd()) == 0;
  if (!done) throw std::system_error(errno, std::generic_category(), path());
}

std::optional<Beat> Heartbeat::lastBefore(const std::string& boot) const {
  std::optional<Beat> beat;
  // What is aside is older than one that the loss of power tore.
  const auto why = Qel::failureOf([&] { beat = beatIn(path()); });
  if (why) throw SourceException(Qel::String(*why));
  if (!beat || beat->boot == boot) beat = beatIn(pathBefore());
  return beat && beat->boot != boot ? beat : std::nullopt;
}

}  // namespace ResetCause
