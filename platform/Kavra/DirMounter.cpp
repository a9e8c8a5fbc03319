#include "Kavra/DirMounter.h"

#include <utility>

#include "Kavra/KavraTrace.h"
#include "Kavra/Mirror.h"
#include "Qel/Exception.h"
#include "Qel/Name.h"
#include "Qel/Strep.h"

namespace Kavra {

namespace {

Qel::String joined(const Qel::String& rootPath, const Qel::String& path) {
  if (rootPath.empty()) return path;
  return rootPath.view().ends_with('/') ? rootPath + path : rootPath + "/" + path;
}

}  // namespace

DirMounter::DirMounter(const Qel::String& rootPath, const Qel::String& path,
                       const Qel::String& entityType, const Qel::String& mountFlags,
                       const Qel::Ptr<EntityManager>& entityManager,
                       const Qel::Ptr<Qel::Clock const>& clock)
    : Qel::Entity(Qel::Name(joined(rootPath, path))),
      rootPath_(rootPath),
      path_(path),
      entityType_(entityType),
      mountFlags_(mountFlags),
      entityManager_(entityManager),
      clock_(clock) {
  if (mountFlags_ != "r") {
    Qel::throwRangeException("mount flags " + Qel::valueToStrep(mountFlags_) +
                             " are not supported, only 'r' is");
  }
}

DirMounter::~DirMounter() = default;

Qel::String DirMounter::mountPath() const { return joined(rootPath_, path_); }

void DirMounter::start() {
  if (!entityManager_) Qel::throwRangeException("null ValidPtr");
  const Qel::String path = mountPath();
  const auto mirror =
      Qel::make<Mirror>(entityManager_->feed(path), path, entityType_,
                        [this](const Qel::Ptr<Qel::Entity>& entity) { mountIsComplete(entity); });
  result_ = nullptr;
  completionIsDue_ = false;
  mirror_ = mirror;
}

void DirMounter::handleComplete(const Qel::Ptr<Qel::Entity>& /*entity*/) {}

void DirMounter::hasNotificationActiveIs(bool active) {
  Qel::Entity::hasNotificationActiveIs(active);
  if (completionIsDue_ && mayComplete()) deliverLater();
}

void DirMounter::qelDoZombieReactors(bool zombie) {
  Qel::Entity::qelDoZombieReactors(zombie);
  if (completionIsDue_ && mayComplete()) deliverLater();
}

void DirMounter::mountIsComplete(const Qel::Ptr<Qel::Entity>& entity) {
  result_ = entity;
  completionIsDue_ = true;
  deliver();
}

void DirMounter::deliverLater() {
  delivery_ = Qel::activityManager()->activityIs([this] {
    // The last look at this object: completion may let go of it.
    traceFailure(mountPath(), [this] { deliver(); });
  });
}

void DirMounter::deliver() {
  if (!completionIsDue_ || !mayComplete()) return;
  const Qel::Ptr<DirMounter> alive(this);
  completionIsDue_ = false;
  const Qel::Ptr<Qel::Entity> entity = std::exchange(result_, nullptr);
  // Nobody has seen the entity of a mount that found another type.
  if (!entity) mirror_ = nullptr;
  handleComplete(entity);
}

}  // namespace Kavra
