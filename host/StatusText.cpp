#include "host/StatusText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "Kavra/Json/Text.h"
#include "Kavra/Status.h"
#include "Qel/Document.h"
#include "Qel/String.h"

namespace Host {
namespace {

using Qel::Document;

constexpr std::size_t kMostListed = 256;
constexpr std::size_t kMostSinksListed = 64;

struct Database {
  std::string url;
  Kavra::Status status;
};

std::vector<Database> databasesOf(const StateDatabase& database) {
  std::vector<Database> databases;
  for (const auto& one : database.databases()) databases.push_back({one.url, one.feed->status()});
  return databases;
}

// Why what is served of a database may not be what it holds; empty when it is.
std::string staleness(const Database& database) {
  const auto& [url, status] = database;
  if (!status.followed || status.isFresh()) return {};
  if (!status.problem.empty()) return Kavra::problemOf(status, url);
  if (!status.reachable) return fmt::format("{}: not reached", url);
  if (!status.complete) return fmt::format("{}: not read yet", url);
  if (!status.quarantined.empty()) {
    return fmt::format("{}: {}: refused", url, status.quarantined.front().path.view());
  }
  return fmt::format("{}: {}: published no longer", url, status.withdrawn.begin()->view());
}

Document::List stalenessOf(const std::vector<Database>& databases) {
  Document::List reasons;
  for (const Database& database : databases) {
    const std::string reason = staleness(database);
    if (!reason.empty()) reasons.emplace_back(Qel::String(reason));
  }
  return reasons;
}

Document documentOf(Database database, std::size_t mostListed) {
  auto& [url, status] = database;
  const std::uint64_t quarantined = status.quarantined.size();
  status.quarantined.resize(std::min(status.quarantined.size(), mostListed));
  Document::List withdrawn;
  for (const Qel::String& path : status.withdrawn) {
    if (withdrawn.size() < mostListed) withdrawn.emplace_back(path);
  }
  Document::Map map = Kavra::documentOf(status, Qel::String(url));
  map.emplace_back("quarantinedCount", quarantined);
  map.emplace_back("withdrawn", std::move(withdrawn));
  map.emplace_back("withdrawnCount", std::uint64_t{status.withdrawn.size()});
  map.emplace_back("followed", status.followed);
  map.emplace_back("complete", status.complete);
  return map;
}

Document redundancyOf(const StateDatabase& database) {
  const auto& status = *database.redundancyStatus();
  return Document::Map{{"protocol", static_cast<U32>(status.protocol())},
                       {"switchoverCapable", status.switchoverCapable()}};
}

Document mountOf(const StateDatabase& database, const StateTree& tree) {
  const auto mount = tree.peerMount();
  if (!mount) return {};
  if (*mount == StateTree::Mount::none) return "none";
  if (*mount == StateTree::Mount::mounted) return "mounted";
  // The agent keeps a mount that it asks for no longer.
  const bool isWanted =
      database.redundancyStatus()->protocol() == Redundancy::RedundancyProtocol::hotStandby;
  return isWanted ? "waiting" : "idle";
}

Document rowsOf(const StateTree& tree) {
  Document::Map rows;
  for (U32 unit = 0; unit < kUnits; ++unit) {
    auto& [name, count] = rows.emplace_back(Qel::String(std::to_string(unit)), Document());
    if (const auto told = tree.rowsOf(unit)) count = *told;
  }
  return rows;
}

Document sinkStatusOf(const NotificationSink& sink) {
  const auto& counts = sink.counts();
  return Document::Map{{"sink", Qel::String(sink.line().target)},
                       {"problem", Qel::String(sink.problem())},
                       {"sent", counts.sent},
                       {"acknowledged", counts.acknowledged},
                       {"givenUp", counts.givenUp},
                       {"kept", std::uint64_t{sink.kept()}}};
}

Document notificationsOf(const NotificationSinks* sinks) {
  Document::List list;
  if (sinks == nullptr) return list;
  for (const auto& sink : sinks->sinks()) {
    if (list.size() < kMostSinksListed) list.push_back(sinkStatusOf(*sink));
  }
  return list;
}

}  // namespace

std::string statusText(U32 cell, const std::string& agentProblem, const StateDatabase& database,
                       const StateTree& tree, const NotificationSinks* sinks) {
  const auto databases = databasesOf(database);
  auto stale = stalenessOf(databases);
  if (!agentProblem.empty()) stale.emplace_back(Qel::String(agentProblem));
  Document::Map status{{"cell", cell},
                       {"fresh", stale.empty()},
                       {"stale", stale},
                       {"redundancy", redundancyOf(database)},
                       {"peerMount", mountOf(database, tree)},
                       {"rows", rowsOf(tree)},
                       {"notifications", notificationsOf(sinks)},
                       {"databases", Document()}};
  for (std::size_t mostListed = kMostListed;; mostListed /= 2) {
    Document::List list;
    for (const Database& one : databases) list.push_back(documentOf(one, mostListed));
    status.back().second = std::move(list);
    std::string text = Kavra::Json::write(status, Kavra::Json::Form::line) + "\n";
    if (text.size() <= kMostStatusOctets || mostListed == 0) return text;
  }
}

}  // namespace Host
