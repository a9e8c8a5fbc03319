#include "host/Reload.h"

#include <fmt/format.h>

#include <functional>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "Qel/Failure.h"
#include "host/Errors.h"
#include "host/Log.h"

namespace Host {
namespace {

// A subagent's access is its master's.
std::optional<std::string> accessFile(const Options& options) {
  return options.agentxAddress ? std::nullopt : options.configurationFile;
}

std::vector<std::string> filesOf(const Options& options, const StateDatabase& database) {
  std::vector<std::string> files;
  if (options.traceFile) files.push_back(*options.traceFile);
  for (const auto& one : database.databases()) {
    if (!one.credentialsFile.empty()) files.push_back(one.credentialsFile);
  }
  if (const auto file = accessFile(options)) files.push_back(*file);
  return files;
}

// Told each time: it was asked for.
void log(std::string_view text, int severity = LOG_INFO) {
  processLog().detail(severity, fmt::format("reload: {}", text));
}

// What keeps a file from being taken in, or nothing.
std::optional<std::string> failureOf(const std::function<void()>& read) {
  try {
    return Qel::failureOf(read);
  } catch (const StartError& error) {
    return error.what();
  }
}

}  // namespace

Reload::Reload(const Options& options, TraceLevels& traces, const StateDatabase& database,
               SnmpAgent& agent, Qel::EventLoop& loop, std::function<void()> accessWasRead)
    : options_(options),
      traces_(traces),
      database_(database),
      agent_(agent),
      loop_(loop),
      accessWasRead_(std::move(accessWasRead)) {}

void Reload::begin() {
  again_ = trial_ != nullptr;
  if (again_) return;
  const auto files = filesOf(options_, database_);
  if (!files.empty()) log(fmt::format("reading again: {}", fmt::join(files, ", ")));
  readTraces();
  readCredentials();
  if (accessFile(options_)) return tryAccess();
  end();
}

void Reload::readTraces() {
  if (!options_.traceFile) return;
  const auto failure = failureOf([this] { traces_.readAgain(); });
  log(failure ? fmt::format("{}; the levels stay", *failure)
              : fmt::format("{}: taken in", *options_.traceFile));
}

void Reload::readCredentials() {
  for (const StateDatabase::Database& one : database_.databases()) {
    if (one.credentialsFile.empty()) continue;
    bool isNew = false;
    const auto failure = failureOf([&] { isNew = one.feed->readCredentialsAgain(); });
    if (failure) {
      log(fmt::format("{}; what was read last goes on", *failure), LOG_ERR);
    } else {
      log(fmt::format(
          "{}: {}", one.credentialsFile,
          isNew ? fmt::format("taken in; connecting to {} anew", one.url) : "as before"));
    }
  }
}

void Reload::tryAccess() {
  const auto failure = failureOf([this] {
    const auto read = [this] {
      agent_.readConfigurationAgain();
      return std::string();
    };
    trial_ = std::make_unique<Trial>(loop_, read,
                                     [this](const auto& problem) { handleAccess(problem); });
  });
  if (failure) handleAccess(fmt::format("{}: {}", *options_.configurationFile, *failure));
}

void Reload::handleAccess(const std::string& problem) {
  trial_ = nullptr;
  const std::string& file = *options_.configurationFile;
  if (!problem.empty()) {
    // What is wrong with a line names the file.
    const std::string place = problem.starts_with(file) ? "" : file + ": ";
    log(fmt::format("{}{}; the access that stands goes on", place, problem), LOG_ERR);
  } else {
    const auto failure = failureOf([this] { agent_.readConfigurationAgain(); });
    log(failure ? fmt::format("{}; it changed while it was taken in, which lets in fewer than it "
                              "should",
                              *failure)
                : fmt::format("{}: taken in", file));
    accessWasRead_();
  }
  end();
}

void Reload::end() {
  const bool isNothing = filesOf(options_, database_).empty();
  log(fmt::format("{}; everything else takes a restart",
                  isNothing ? "nothing to read again" : "done"));
  if (std::exchange(again_, false)) begin();
}

}  // namespace Host
