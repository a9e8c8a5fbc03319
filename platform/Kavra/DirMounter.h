#pragma once

#include "Kavra/EntityManager.h"
#include "Qel/ActivityManager.h"
#include "Qel/Clock.h"
#include "Qel/Entity.h"
#include "Qel/Ptr.h"
#include "Qel/String.h"

namespace Kavra {

// The read-only mount of one entity of the state database, by path.
//
// start() begins a mount with an entity of its own: two mounts of one path have two entities. When
// a document of the entity type stands at the path (at once, or as soon as one is published), the
// entity is made equal to it and handed to handleComplete(); when a document of another type stands
// there, handleComplete() gets null. A document of the right type that does not fit it is passed
// over, and the mount waits for a good one.
//
// Completion comes once for each start(), from the event loop, never from inside start(). It waits
// while the notifications of the mounter are off, and is delivered, from the loop again, after they
// came on. A zombie never completes. Nothing of a mount refers to its mounter by count: letting go
// of the mounter cancels it.
//
// The entity goes on following its path while the mounter lives; what no longer is published, fits
// or has the right type leaves it as it was last seen.
class DirMounter : public Qel::Entity {
 public:
  // `rootPath` and `path` joined by '/' make the path to mount; an empty root adds nothing. Flags
  // other than "r", read-only, raise RangeException naming them.
  DirMounter(const Qel::String& rootPath, const Qel::String& path, const Qel::String& entityType,
             const Qel::String& mountFlags, const Qel::Ptr<EntityManager>& entityManager,
             const Qel::Ptr<Qel::Clock const>& clock);
  ~DirMounter() override;

  const Qel::String& rootPath() const noexcept { return rootPath_; }
  const Qel::String& path() const noexcept { return path_; }
  Qel::String mountPath() const;
  const Qel::String& entityType() const noexcept { return entityType_; }
  const Qel::String& mountFlags() const noexcept { return mountFlags_; }
  const Qel::Ptr<EntityManager>& entityManager() const noexcept { return entityManager_; }
  const Qel::Ptr<Qel::Clock const>& clock() const noexcept { return clock_; }

  // Begins a mount, in the place of one that was begun before. Raises RangeException without an
  // entity manager ("null ValidPtr"), for a path that is not well formed, and for an entity type
  // that no document can have.
  void start();
  // The mount is complete; `entity` is null when a document of another type stands at the path. May
  // let go of the mounter.
  virtual void handleComplete(const Qel::Ptr<Qel::Entity>& entity);

  void hasNotificationActiveIs(bool active) override;
  void qelDoZombieReactors(bool zombie) override;

 private:
  void mountIsComplete(const Qel::Ptr<Qel::Entity>& entity);
  bool mayComplete() const noexcept { return hasNotificationActive() && !isMarkedForDeletion(); }
  void deliverLater();
  void deliver();

  const Qel::String rootPath_;
  const Qel::String path_;
  const Qel::String entityType_;
  const Qel::String mountFlags_;
  const Qel::Ptr<EntityManager> entityManager_;
  const Qel::Ptr<Qel::Clock const> clock_;

  bool completionIsDue_ = false;
  Qel::Ptr<Qel::Entity> result_;  // what it will hand over
  Qel::Ptr<Mirror> mirror_;
  Qel::Ptr<Qel::Activity> delivery_;
};

}  // namespace Kavra
