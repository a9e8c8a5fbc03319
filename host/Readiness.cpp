#include "host/Readiness.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "Kavra/Status.h"
#include "Qel/ActivityManager.h"
#include "host/Log.h"

namespace Host {
namespace {

bool isMissing(const Kavra::Status& status) { return status.followed && !status.complete; }

// What was read may have others follow more, which is work put off.
bool isInTheTable(const StateDatabase& database) {
  const auto& all = database.databases();
  return !Qel::activityManager()->hasWork() &&
         std::none_of(all.begin(), all.end(),
                      [](const auto& one) { return isMissing(one.feed->status()); });
}

std::vector<std::string> missingOf(const StateDatabase& database) {
  std::vector<std::string> missing;
  for (const auto& [url, credentialsFile, feed] : database.databases()) {
    const Kavra::Status status = feed->status();
    // One that is not there yet is not waited for, but missed all the same.
    if (!status.followed || (status.complete && status.reachable)) continue;
    missing.push_back(Kavra::problemOf(status, url));
  }
  return missing;
}

}  // namespace

std::vector<std::string> waitForDatabases(const StateDatabase& database, NetSnmpEventLoop& loop,
                                          double patience) {
  bool over = false;
  const auto end = loop.timerIs(patience, [&over] { over = true; });
  loop.runUntil([&] { return over || isInTheTable(database); });
  return missingOf(database);
}

void tellReady(const Options& options, const std::vector<std::string>& missing,
               Qel::ServiceManager& manager) {
  const std::string serves = options.agentxAddress
                                 ? fmt::format("the master at {}", *options.agentxAddress)
                                 : fmt::format("{}", fmt::join(options.listenAddresses, ", "));
  const auto text = fmt::format("cell {} serves {}{}{}", options.cellId, serves,
                                missing.empty() ? "" : "; missing: ", fmt::join(missing, ", "));
  logLine(text);
  manager.readyIs(text);
}

}  // namespace Host
