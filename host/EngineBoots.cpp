#include "host/EngineBoots.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "Kavra/FileContent.h"
#include "Kavra/FileDescriptor.h"
#include "Qel/Number.h"

namespace Host {
namespace {

constexpr U32 kMostBoots = 2147483647;
constexpr std::size_t kMostOctets = 64;

[[noreturn]] void fail() { throw std::system_error(errno, std::generic_category()); }

// What the file remembers; 0 where there is none. Raises std::system_error, or
// std::invalid_argument for what is no count.
U32 remembered(const std::string& file) {
  const Kavra::FileDescriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!opened && errno == ENOENT) return 0;
  if (!opened) fail();
  std::string text = Kavra::readUpTo(opened, kMostOctets).value_or("");
  if (text.ends_with('\n')) text.pop_back();
  const auto count = Qel::numberOf<U32>(text);
  if (!count || *count > kMostBoots) throw std::invalid_argument("not a count of starts");
  return *count;
}

// Raises std::system_error; the file is then as it was, or as it is to be.
void remember(const std::string& file, U32 count) {
  const auto directory = std::filesystem::absolute(file).parent_path();
  const bool done =
      Kavra::replaceFile(file, fmt::format("{}\n", count)) && Kavra::storeFolder(directory);
  if (!done) fail();
}

}  // namespace

EngineBoots EngineBoots::ofClock(std::chrono::sys_seconds now) {
  constexpr std::chrono::sys_seconds kFirst =
      std::chrono::sys_days(std::chrono::year(2020) / std::chrono::January / 1);
  const std::int64_t seconds = (now - kFirst).count();
  return {static_cast<U32>(std::clamp<std::int64_t>(seconds, 1, kMostBoots)), ""};
}

EngineBoots EngineBoots::ofFile(const std::string& file, std::chrono::sys_seconds now) {
  EngineBoots boots = ofClock(now);
  try {
    try {
      boots.count = std::max(boots.count, std::min(remembered(file), kMostBoots - 1) + 1);
    } catch (const std::invalid_argument& error) {
      boots.problem = fmt::format("{}: {}", file, error.what());
    }
    remember(file, boots.count);
  } catch (const std::system_error& error) {
    boots.problem = fmt::format("{}: {}", file, error.code().message());
  }
  return boots;
}

}  // namespace Host
