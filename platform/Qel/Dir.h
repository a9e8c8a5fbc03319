#pragma once

#include <map>
#include <string_view>
#include <vector>

#include "Qel/Entity.h"
#include "Qel/Name.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"

namespace Qel {

// An entity that owns other entities by name; directories in directories make a state tree.
//
// A path is a sequence of names joined by '/', without a leading one; empty names are invalid.
class Dir : public Entity {
 public:
  class NotifieeConst : public Entity::NotifieeConst {
   public:
    using Entity::NotifieeConst::NotifieeConst;
    void notifierIs(Ptr<PtrInterface const> notifier) override;
    // The entity under `name` was added or removed.
    virtual void onEntity(const Name& /*name*/) {}
  };

  explicit Dir(const Name& name);
  ~Dir() override;

  // The entity at `path` below this directory, or null. The empty path is null, too.
  Ptr<Entity> entity(std::string_view path) const;
  // Names present, in ascending order.
  std::vector<Name> names() const;

  // Puts `entity` under its own name. Raises NameInUseException when another object has that name,
  // RangeException for a null entity ("null ValidPtr"), an empty name or one with a '/', or an
  // entity that stands under another parent.
  void entityIs(const Ptr<Entity>& entity);
  // Removes and returns what stands under `name`, or null.
  Ptr<Entity> entityDel(const Name& name);

  // The directory at `path`, made with those above it where absent. Raises NameInUseException when
  // another kind of entity stands in the way.
  Ptr<Dir> dirIs(std::string_view path);
  // Makes an entity of a registered type under `name` through the type's new-entity-for-directory
  // hook. Raises RangeException for an unknown type, OperationNotSupportedException for one that
  // cannot be made this way.
  Ptr<Entity> newEntityIs(std::string_view typeName, const Name& name);

 private:
  std::map<Name, Ptr<Entity>> entities_;
};

}  // namespace Qel
