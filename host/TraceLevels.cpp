#include "host/TraceLevels.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fstream>

#include "Qel/String.h"
#include "Qel/Trace.h"
#include "host/Errors.h"

namespace Host {
namespace {

constexpr std::size_t kMostLines = 1000;

std::vector<TraceOption> levelsIn(const std::string& file) {
  std::vector<TraceOption> levels;
  errno = 0;
  std::ifstream in(file);
  std::string line;
  for (std::size_t number = 1; number <= kMostLines && std::getline(in, line); ++number) {
    if (line.empty() || line.starts_with('#')) continue;
    auto level = traceOptionOf(line);
    if (!level) {
      throw StartError(fmt::format("{}: line {}: expected {}", file, number, kTraceForm));
    }
    levels.push_back(*std::move(level));
  }
  if (!in.eof()) {
    throw StartError(fmt::format("{}: {}", file, errno == 0 ? "too long" : std::strerror(errno)));
  }
  return levels;
}

}  // namespace

TraceLevels::TraceLevels(const Options& options)
    : typed_(options.traces), file_(options.traceFile) {
  readAgain();
}

void TraceLevels::readAgain() {
  std::vector<TraceOption> levels = typed_;
  if (file_) {
    const auto read = levelsIn(*file_);
    levels.insert(levels.end(), read.begin(), read.end());
  }
  nothingIsTraced();
  for (const auto& [facility, level] : levels) Qel::traceLevelIs(facility, level);
  present_ = levels;
}

void TraceLevels::nothingIsTraced() {
  for (const auto& [facility, level] : present_) Qel::traceLevelIs(facility, 0);
}

}  // namespace Host
