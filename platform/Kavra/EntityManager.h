#pragma once

#include <map>
#include <utility>

#include "Qel/Entity.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/String.h"

namespace Kavra {

class Feed;
class Mirror;

// The process's connection to the state database: makes local entities that follow a path.
//
// Paths below the peer prefix live in the peer's database, all others in the own one; both may be
// the same. The manager keeps its feeds, and every entity that it handed out follows its path while
// the manager lives; afterwards the entity stays as it is, for whoever holds it.
//
// Entities change in place, from the event loop only, and are never emptied because a connection, a
// file or a document went: the last good state stays.
class EntityManager final : public Qel::PtrInterface {
 public:
  // Raises RangeException "null ValidPtr" for a null feed.
  explicit EntityManager(const Qel::Ptr<Feed>& feed);
  // Paths that begin with `peerPrefix` ("cell/2/") are those of the peer.
  EntityManager(const Qel::Ptr<Feed>& feed, const Qel::Ptr<Feed>& peerFeed,
                const Qel::String& peerPrefix);
  ~EntityManager() override;

  // The entity that follows `path`, empty until something is published there; named by its path.
  // The same path and type give the same object. Raises RangeException for a path that is not well
  // formed and for a type that no state-database document can have.
  Qel::Ptr<Qel::Entity> entityIs(const Qel::String& path, const Qel::String& typeName);

  // The feed in which `path` lives.
  const Qel::Ptr<Feed>& feed(const Qel::String& path) const;

 private:
  using Key = std::pair<Qel::String, Qel::String>;

  const Qel::Ptr<Feed> feed_;
  const Qel::Ptr<Feed> peerFeed_;
  const Qel::String peerPrefix_;
  std::map<Key, Qel::Ptr<Mirror>> mirrors_;
};

}  // namespace Kavra
