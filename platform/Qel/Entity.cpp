#include "Qel/Entity.h"

#include <utility>

namespace Qel {

void Entity::NotifieeConst::notifierIs(Ptr<PtrInterface const> notifier) {
  PtrInterface::NotifieeConst::notifierIs(ptrCast<Entity const>(notifier));
}

Entity::Entity(const Name& name) : name_(name) {}

Entity::~Entity() = default;

void Entity::nameIsFromBackup(Name name) { name_ = std::move(name); }

void Entity::parentIs(Entity* parent, const String& parentAttribute) {
  if (parent == parent_ && parentAttribute == parentAttribute_) return;
  parent_ = parent;
  parentAttribute_ = parentAttribute;
  handleParent();
}

void Entity::zeroReferencesIs(bool /*zeroReferences*/) { notifiees_.zeroReferences(); }

}  // namespace Qel
