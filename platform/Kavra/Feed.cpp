#include "Kavra/Feed.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "Kavra/KavraTrace.h"
#include "Kavra/Path.h"

namespace Kavra {

Qel::Ptr<Follow> Feed::followIs(const Qel::String& path, Follow::Call call) {
  needPath(path);
  return newFollow(Follow::Scope::path, path, std::move(call));
}

Qel::Ptr<Follow> Feed::followPrefixIs(const Qel::String& prefix, Follow::Call call) {
  return newFollow(Follow::Scope::prefix, prefix, std::move(call));
}

Qel::Ptr<Follow> Feed::newFollow(Follow::Scope scope, const Qel::String& text, Follow::Call call) {
  const Follow::Number number = nextNumber_++;
  Qel::Ptr<Follow> follow =
      Qel::make<Follow>(Qel::Ptr<Feed>(this), number, scope, text, std::move(call));
  follows_.emplace(number, follow.get());
  handleFollows();
  return follow;
}

void Feed::documentsAre(Documents documents, const Problems& unreadable,
                        const std::set<Qel::String>& unchanged) {
  const Qel::Ptr<Feed> alive(this);
  std::vector<Qel::String> changed;
  std::erase_if(entries_, [&](const auto& entry) {
    const Qel::String& path = entry.first;
    if (documents.contains(path) || unreadable.contains(path) || unchanged.contains(path)) {
      return false;
    }
    if (entry.second.misfit) traceNoLongerRefused(entry.first, false);
    changed.push_back(entry.first);
    return true;
  });
  for (auto& [path, document] : documents) {
    if (take(path, std::move(document))) changed.push_back(path);
  }
  for (const auto& [path, why] : unreadable) {
    if (takeUnreadable(path, why)) changed.push_back(path);
  }
  for (const Qel::String& path : changed) tell(path);
}

bool Feed::isGood(const Qel::String& path) const {
  const auto entry = entries_.find(path);
  return entry != entries_.end() && entry->second.good && !entry->second.misfit;
}

bool Feed::take(const Qel::String& path, Qel::Document document) {
  Entry& entry = entries_[path];
  if (entry.good && entry.good->document == document) {
    // What is served, perhaps again: there is nothing new to tell.
    release(entry, path);
    return false;
  }
  CheckedDocument checked(path, std::move(document));
  if (!checked.fits()) return quarantine(entry, path, std::move(checked));
  release(entry, path);
  entry.good = std::make_shared<const CheckedDocument>(std::move(checked));
  return true;
}

bool Feed::takeUnreadable(const Qel::String& path, const Qel::String& why) {
  CheckedDocument checked(path, {});
  checked.misfit = why;
  return quarantine(entries_[path], path, std::move(checked));
}

bool Feed::quarantine(Entry& entry, const Qel::String& path, CheckedDocument misfit) {
  const auto& before = entry.misfit;
  if (before && before->misfit == misfit.misfit && before->fingerprint == misfit.fingerprint) {
    return false;
  }
  traceRefused(path, misfit.misfit);
  entry.misfit = std::make_shared<const CheckedDocument>(std::move(misfit));
  return true;
}

void Feed::release(Entry& entry, const Qel::String& path) {
  if (!entry.misfit) return;
  entry.misfit = nullptr;
  traceNoLongerRefused(path, true);
}

void Feed::tell(const Qel::String& path) {
  const auto entry = entries_.find(path);
  const CheckedDocumentPtr checked =
      entry == entries_.end() ? CheckedDocumentPtr() : entry->second.latest();
  std::vector<Follow::Number> numbers;
  for (const auto& [number, follow] : follows_) {
    if (follow->hasBegun() && follow->covers(path)) numbers.push_back(number);
  }
  for (const Follow::Number number : numbers) {
    // An earlier call may have ended it.
    const auto found = follows_.find(number);
    if (found == follows_.end()) continue;
    const Qel::Ptr<Follow> held(found->second);
    held->deliver(path, checked);
  }
}

void Feed::tellAll(Follow::Number number) {
  std::vector<std::pair<Qel::String, CheckedDocumentPtr>> covered;
  for (const auto& [path, entry] : entries_) {
    if (follows_.at(number)->covers(path)) covered.emplace_back(path, entry.served());
  }
  for (const auto& [path, checked] : covered) {
    const auto found = follows_.find(number);
    if (found == follows_.end()) return;
    const Qel::Ptr<Follow> held(found->second);
    held->deliver(path, checked);
  }
}

std::set<Qel::String> Feed::followedPaths() const {
  std::set<Qel::String> paths;
  for (const auto& [number, follow] : follows_) {
    if (follow->scope() == Follow::Scope::path) paths.insert(follow->text());
  }
  return paths;
}

bool Feed::followsPrefixes() const {
  return std::any_of(follows_.begin(), follows_.end(), [](const auto& follow) {
    return follow.second->scope() == Follow::Scope::prefix;
  });
}

Status Feed::status() const {
  Status status;
  status.reachable = true;
  status.followed = isFollowed();
  status.complete = true;
  for (const auto& [path, entry] : entries_) {
    if (entry.misfit) status.quarantined.push_back({path, entry.misfit->misfit});
  }
  for (const auto& [number, follow] : follows_) {
    if (!follow->refusal().path.empty()) status.quarantined.push_back(follow->refusal());
    if (follow->isWithdrawn()) status.withdrawn.insert(follow->text());
  }
  return status;
}

}  // namespace Kavra
