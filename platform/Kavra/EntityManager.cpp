#include "Kavra/EntityManager.h"

#include "Kavra/Feed.h"
#include "Kavra/Mirror.h"
#include "Qel/Exception.h"

namespace Kavra {

EntityManager::EntityManager(const Qel::Ptr<Feed>& feed) : EntityManager(feed, feed, {}) {}

EntityManager::EntityManager(const Qel::Ptr<Feed>& feed, const Qel::Ptr<Feed>& peerFeed,
                             const Qel::String& peerPrefix)
    : feed_(feed), peerFeed_(peerFeed), peerPrefix_(peerPrefix) {
  if (!feed_ || !peerFeed_) Qel::throwRangeException("null ValidPtr");
}

EntityManager::~EntityManager() = default;

Qel::Ptr<Qel::Entity> EntityManager::entityIs(const Qel::String& path,
                                              const Qel::String& typeName) {
  const Key key(path, typeName);
  if (const auto found = mirrors_.find(key); found != mirrors_.end()) {
    return found->second->entity();
  }
  const auto mirror = Qel::make<Mirror>(feed(path), path, typeName);
  mirrors_.emplace(key, mirror);
  return mirror->entity();
}

const Qel::Ptr<Feed>& EntityManager::feed(const Qel::String& path) const {
  return path.view().starts_with(peerPrefix_.view()) ? peerFeed_ : feed_;
}

}  // namespace Kavra
