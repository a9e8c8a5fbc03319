#include "Qel/Dir.h"

#include <cstddef>

#include "Qel/Exception.h"
#include "Qel/Format.h"
#include "Qel/String.h"
#include "Qel/TypeNode.h"

namespace Qel {

namespace {

constexpr char kParentAttribute[] = "entity";

void needValidName(const Name& name) {
  const std::string_view text = name.string().view();
  if (text.empty() || text.find('/') != std::string_view::npos) {
    throwRangeException(format("'%s' is not the name of an entity", name));
  }
}

}  // namespace

void Dir::NotifieeConst::notifierIs(Ptr<PtrInterface const> notifier) {
  Entity::NotifieeConst::notifierIs(ptrCast<Dir const>(notifier));
}

Dir::Dir(const Name& name) : Entity(name) {}

Dir::~Dir() {
  while (!entities_.empty()) entityDel(entities_.begin()->first);
}

Ptr<Entity> Dir::entity(std::string_view path) const {
  const std::size_t slash = path.find('/');
  const auto found = entities_.find(Name(String(path.substr(0, slash))));
  if (found == entities_.end()) return nullptr;
  if (slash == std::string_view::npos) return found->second;
  const Ptr<Dir> dir = ptrCast<Dir>(found->second);
  return dir ? dir->entity(path.substr(slash + 1)) : nullptr;
}

std::vector<Name> Dir::names() const {
  std::vector<Name> names;
  for (const auto& [name, entity] : entities_) names.push_back(name);
  return names;
}

void Dir::entityIs(const Ptr<Entity>& entity) {
  if (!entity) throwRangeException("null ValidPtr");
  const Name name = entity->name();
  needValidName(name);
  if (entity->parent() != nullptr && entity->parent() != this) {
    throwRangeException(format("'%s' stands under another parent", name));
  }
  const auto [place, added] = entities_.emplace(name, entity);
  if (!added) {
    if (place->second == entity) return;
    throwNameInUseException(format("'%s' is taken by another entity", name));
  }
  entity->parentIs(this, kParentAttribute);
  notify<NotifieeConst>([&name](NotifieeConst& notifiee) { notifiee.onEntity(name); });
}

Ptr<Entity> Dir::entityDel(const Name& name) {
  const auto found = entities_.find(name);
  if (found == entities_.end()) return nullptr;
  const Name removedName = found->first;
  Ptr<Entity> removed = found->second;
  entities_.erase(found);
  removed->parentIs(nullptr, String());
  notify<NotifieeConst>(
      [&removedName](NotifieeConst& notifiee) { notifiee.onEntity(removedName); });
  return removed;
}

Ptr<Dir> Dir::dirIs(std::string_view path) {
  const std::size_t slash = path.find('/');
  const Name name(String(path.substr(0, slash)));
  Ptr<Entity> found = entity(name.string());
  if (!found) {
    found = make<Dir>(name);
    entityIs(found);
  }
  const Ptr<Dir> dir = ptrCast<Dir>(found);
  if (!dir) throwNameInUseException(format("'%s' is not a directory", name));
  return slash == std::string_view::npos ? dir : dir->dirIs(path.substr(slash + 1));
}

Ptr<Entity> Dir::newEntityIs(std::string_view typeName, const Name& name) {
  const TypeNode* type = typeNode(typeName);
  if (type == nullptr) throwRangeException(format("type '%s' is not registered", typeName));
  Ptr<Entity> entity = type->newEntityForDir(*this, name);
  entityIs(entity);
  return entity;
}

}  // namespace Qel
