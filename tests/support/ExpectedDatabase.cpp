#include "support/ExpectedDatabase.h"

#include <utility>

namespace expected {

void Database::Mount::isOn(bool isOn) {
  const bool cameOn = isOn && !on;
  on = isOn;
  if (cameOn && stage == Stage::isDue) database->tasks_.push_back(self);
}

Database::MountPtr Database::mount(const std::string& path, Mount::Complete complete) {
  auto mount = std::make_shared<Mount>();
  mount->database = this;
  mount->path = path;
  mount->complete = std::move(complete);
  mount->self = mount;
  std::erase_if(mounts_, [](const std::weak_ptr<Mount>& old) { return old.expired(); });
  mounts_.push_back(mount);
  tasks_.push_back(mount);
  return mount;
}

void Database::publish(const std::string& path, const Document& document) {
  const auto served = served_.find(path);
  if (document.fits || served == served_.end() || !served->second.fits) served_[path] = document;
  const std::vector<std::weak_ptr<Mount>> mounts = mounts_;
  for (const auto& held : mounts) {
    const MountPtr mount = held.lock();
    if (mount && mount->path == path && mount->stage != Mount::Stage::begins) see(*mount, document);
  }
}

void Database::settle() {
  while (!tasks_.empty()) {
    const MountPtr mount = tasks_.front().lock();
    tasks_.pop_front();
    if (!mount) continue;
    if (mount->stage == Mount::Stage::begins) {
      begin(*mount);
    } else if (mount->stage == Mount::Stage::isDue && mount->on) {
      complete(*mount);
    }
  }
}

void Database::begin(Mount& mount) {
  mount.stage = Mount::Stage::waits;
  const auto served = served_.find(mount.path);
  if (served != served_.end()) see(mount, served->second);
}

void Database::see(Mount& mount, const Document& document) {
  const bool waits = mount.stage == Mount::Stage::waits;
  const bool isHistory = document.type == kHistoryType;
  if (isHistory && !document.fits) return;
  if (isHistory) apply(*mount.history, document);
  if (!waits) return;
  mount.stage = Mount::Stage::isDue;
  mount.result = isHistory ? mount.history : nullptr;
  if (mount.on) complete(mount);
}

void Database::complete(Mount& mount) {
  mount.stage = Mount::Stage::isComplete;
  mount.complete(std::exchange(mount.result, nullptr));
}

void Database::apply(History& history, const Document& document) {
  const auto before = history.reloads;
  for (const auto& [index, reload] : before) {
    if (document.reloads.contains(index)) continue;
    history.reloads.erase(index);
    told_.historyChanged(history);
  }
  for (const auto& [index, causes] : document.reloads) {
    if (const ReloadPtr present = history.reload(index)) {
      if (present->replace(causes)) told_.causesChanged(*present);
      continue;
    }
    const auto reload = std::make_shared<Reload>();
    reload->replace(causes);
    history.reloads[index] = reload;
    told_.historyChanged(history);
  }
}

}  // namespace expected
