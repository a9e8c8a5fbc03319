// What happens in the state database and on the way from it.
#include "MiscSnmpAgent/RandomWorld.h"
#include "Qel/ActivityManager.h"
#include "Qel/Document.h"

namespace MiscSnmp::Agent {

namespace {

constexpr expected::Number kMostReloads = 4;
using Reloads = std::map<expected::Number, std::vector<expected::Cause>>;

Qel::Document historyDocument(const Reloads& reloads) {
  Qel::Document::Map history;
  for (const auto& [index, causes] : reloads) {
    Qel::Document::List queue;
    for (const expected::Cause& cause : causes) {
      queue.push_back(Qel::Document::Map{{"description", Qel::String(cause.description)},
                                         {"time", cause.time}});
    }
    history.emplace_back(std::to_string(index), Qel::Document::Map{{"causeQ", std::move(queue)}});
  }
  return Qel::Document::Map{{"type", expected::kHistoryType},
                            {"rebootHistory", std::move(history)}};
}

Reloads recorded(const Reloads& before, const std::vector<expected::Cause>& causes) {
  Reloads after{{0, causes}};
  for (const auto& [index, older] : before) {
    if (index + 1 < kMostReloads) after[index + 1] = older;
  }
  return after;
}

}  // namespace

void RandomWorld::loopSettled() {
  both(
      [] {
        while (Qel::activityManager()->hasWork()) Qel::activityManager()->run();
      },
      [this] { device_.database().settle(); });
}

std::string RandomWorld::anyPath() {
  return "cell/" + std::to_string(1 + below(2)) + "/sys/reset/history";
}

void RandomWorld::publish(const std::string& path, const Qel::Document& real,
                          const expected::Document& plain) {
  both([&] { feed_->documentIs(path, real); }, [&] { device_.database().publish(path, plain); });
}

void RandomWorld::peerPublished() {
  peerHistoryPublished("cell/" + std::to_string(3 - cell_) + "/sys/reset/history");
}

void RandomWorld::reloadPublished() { peerHistoryPublished(anyPath()); }

void RandomWorld::peerHistoryPublished(const std::string& path) {
  Reloads& reloads = published_[path];
  switch (below(8)) {
    case 0:
    case 1:
      reloads = recorded(reloads, anyCauses());
      break;
    case 2:
    case 3:
      reloads[0].push_back(anyCause());
      break;
    case 4:
      reloads[below(kMostReloads)] = anyCauses();
      break;
    case 5:
      reloads.erase(chance(2) ? 0 : below(kMostReloads));
      break;
    case 6:
      if (reloads.contains(0)) reloads[0].clear();
      break;
    default:
      break;  // once more as it is
  }
  publish(path, historyDocument(reloads), {expected::kHistoryType, true, reloads});
}

void RandomWorld::otherTypePublished() {
  publish(anyPath(),
          Qel::Document::Map{{"type", "Redundancy::RedundancyStatus"},
                             {"protocol", U32{3}},
                             {"switchoverCapable", true}},
          {"Redundancy::RedundancyStatus", true, {}});
}

void RandomWorld::misfitPublished() {
  constexpr std::array kTypes{expected::kHistoryType, "Redundancy::RedundancyStatus", "No::Such"};
  const std::string type = oneOf(kTypes);
  publish(anyPath(), Qel::Document::Map{{"type", Qel::String(type)}, {"rebootHistory", true}},
          {type, false, {}});
}

void RandomWorld::unpublished() {
  const std::string path = anyPath();
  both([&] { feed_->documentDel(path); }, [&] { device_.database().unpublish(path); });
}

}  // namespace MiscSnmp::Agent
