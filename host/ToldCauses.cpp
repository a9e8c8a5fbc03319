#include "host/ToldCauses.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <sstream>
#include <system_error>

#include "Kavra/FileContent.h"
#include "Kavra/FileDescriptor.h"
#include "Qel/Number.h"
#include "host/Log.h"

namespace Host {
namespace {

constexpr std::size_t kMostToldOctets = 4096;

constexpr auto kNotRead = "nobody is told of what changed while the agent was away";
constexpr auto kNotWritten = "what was told may be told again after a restart";

// The units of the text, or nothing where it is something else.
std::optional<ReloadNews::Told> toldIn(const std::string& text) {
  ReloadNews::Told told;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const auto space = line.find(' ');
    if (space == line.npos) return {};
    const auto unit = Qel::numberOf<U32>(line.substr(0, space));
    const auto digest = Qel::numberOf<ReloadNews::Digest>(line.substr(space + 1));
    if (!unit || !digest) return {};
    told[*unit] = *digest;
  }
  return told;
}

std::string textOf(const ReloadNews::Told& told) {
  std::string text;
  for (const auto& [unit, digest] : told) text += fmt::format("{} {}\n", unit, digest);
  return text;
}

}  // namespace

ReloadNews::Told ToldCauses::read() {
  told_.clear();
  if (file_.empty()) return told_;
  const Kavra::FileDescriptor opened(::open(file_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!opened && errno == ENOENT) return told_;
  if (!opened) {
    problemIs(std::strerror(errno), kNotRead);
    return told_;
  }
  try {
    const auto text = Kavra::readUpTo(opened, kMostToldOctets);
    if (const auto told = text ? toldIn(*text) : std::nullopt) {
      told_ = *told;
    } else {
      problemIs("not what was told of units", kNotRead);
    }
  } catch (const std::system_error& error) {
    problemIs(error.code().message(), kNotRead);
  }
  return told_;
}

void ToldCauses::toldIs(U32 unit, ReloadNews::Digest digest) {
  told_[unit] = digest;
  if (file_.empty()) return;
  const bool done = Kavra::replaceFile(file_, textOf(told_), Kavra::Durable::later);
  problemIs(done ? "" : std::strerror(errno), kNotWritten);
}

void ToldCauses::problemIs(const std::string& problem, const char* outcome) {
  if (!problem.empty() && problem != problem_) {
    logLine(fmt::format("{}: {}: {}", file_, problem, outcome), LOG_WARNING);
  }
  problem_ = problem;
}

}  // namespace Host
