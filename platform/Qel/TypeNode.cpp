#include "Qel/TypeNode.h"

#include <algorithm>
#include <utility>

#include "Qel/Exception.h"
#include "Qel/Format.h"

namespace Qel {

namespace {

// Leaked: modules leave the registry during static destruction, in whatever order that comes.
std::vector<const TypeNode*>& registry() {
  static auto* const nodes = new std::vector<const TypeNode*>;
  return *nodes;
}

template <class Member>
const Member* memberNamed(const std::vector<Member>& members, std::string_view name) {
  const auto found = std::find_if(members.begin(), members.end(), [name](const Member& member) {
    return member.name.view() == name;
  });
  return found == members.end() ? nullptr : &*found;
}

}  // namespace

const GenericAttribute* TypeNode::attribute(std::string_view name) const noexcept {
  return memberNamed(description_.attributes, name);
}

const GenericOperation* TypeNode::operation(std::string_view name) const noexcept {
  return memberNamed(description_.operations, name);
}

Ptr<PtrInterface> TypeNode::newObject(const GenericArgs& args) const {
  if (!description_.factory) GenericIfImpl::throwNotSupported(name(), "factory", "call");
  return description_.factory(args);
}

Ptr<Entity> TypeNode::newEntityForDir(Dir& dir, const Name& entityName) const {
  if (!description_.newEntityForDir) {
    GenericIfImpl::throwNotSupported(name(), "newEntityForDir", "call");
  }
  return description_.newEntityForDir(dir, entityName);
}

Ptr<PtrInterface::NotifieeConst> TypeNode::genericNotifiee(
    const Ptr<PtrInterface const>& notifier, AttributeNotification notification) const {
  if (!description_.genericNotifiee) {
    GenericIfImpl::throwNotSupported(name(), "genericNotifiee", "call");
  }
  return description_.genericNotifiee(notifier, std::move(notification));
}

Ptr<GenericIf> TypeNode::valueOfStrep(const String& text) const {
  if (!description_.valueOfStrep) GenericIfImpl::throwNotSupported(name(), "valueOfStrep", "call");
  return description_.valueOfStrep(text);
}

TypeRegistration::TypeRegistration(TypeDescription description) : node_(std::move(description)) {
  if (typeNode(node_.name()) != nullptr) {
    throwNameInUseException(format("type '%s' is registered already", node_.name()));
  }
  registry().push_back(&node_);
}

TypeRegistration::~TypeRegistration() { std::erase(registry(), &node_); }

std::unique_ptr<TypeRegistration> typeNodeIs(TypeDescription description) {
  return std::make_unique<TypeRegistration>(std::move(description));
}

const TypeNode* typeNode(std::string_view name) {
  const auto& nodes = registry();
  const auto found = std::find_if(nodes.begin(), nodes.end(), [name](const TypeNode* node) {
    return node->name().view() == name;
  });
  return found == nodes.end() ? nullptr : *found;
}

std::vector<const TypeNode*> typeNodes() { return registry(); }

}  // namespace Qel
