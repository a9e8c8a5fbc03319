#pragma once

#include <functional>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "Qel/Document.h"
#include "Qel/Entity.h"
#include "Qel/GenericIf.h"
#include "Qel/GenericValue.h"
#include "Qel/Name.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/String.h"

namespace Qel {

class Dir;

// One attribute of a registered object type. An access that is left empty is refused.
struct GenericAttribute {
  using Read = std::function<GenericValue(const PtrInterface&)>;
  using Set = std::function<GenericValue(PtrInterface&, const GenericArgs&)>;
  using Del = std::function<GenericValue(PtrInterface&)>;

  String name;
  Read read;
  Set set = {};
  Del del = {};
};

// One operation of a registered object type; refused when it has no call.
struct GenericOperation {
  String name;
  std::function<GenericValue(PtrInterface&, const GenericArgs&)> call;
};

// Hears of changes by attribute name: `key` is nothing when a collection changed as a whole.
using AttributeNotification = std::function<void(const String& attribute, const GenericValue& key)>;

// What a module tells the registry about one of its types. Everything but the name may be absent.
struct TypeDescription {
  String name;
  std::vector<GenericAttribute> attributes = {};
  std::vector<GenericOperation> operations = {};
  // Creates an object from generic constructor arguments.
  std::function<Ptr<PtrInterface>(const GenericArgs&)> factory = {};
  // Creates the entity that a directory puts under a name.
  std::function<Ptr<Entity>(Dir&, const Name&)> newEntityForDir = {};
  // Creates a notifiee that passes the notifications of an object on by attribute name. It is
  // bound, registered and active.
  std::function<Ptr<PtrInterface::NotifieeConst>(const Ptr<PtrInterface const>&,
                                                 AttributeNotification)>
      genericNotifiee = {};
  // Reads a value type from its text form, the whole of it.
  std::function<Ptr<GenericIf>(const String&)> valueOfStrep = {};
  std::shared_ptr<const DocumentCodec> documentCodec = {};
};

// A registered type. Lives as long as its TypeRegistration.
class TypeNode {
 public:
  explicit TypeNode(TypeDescription description) : description_(std::move(description)) {}
  TypeNode(const TypeNode&) = delete;
  TypeNode& operator=(const TypeNode&) = delete;

  const String& name() const noexcept { return description_.name; }
  const std::vector<GenericAttribute>& attributes() const noexcept {
    return description_.attributes;
  }
  const GenericAttribute* attribute(std::string_view name) const noexcept;
  const GenericOperation* operation(std::string_view name) const noexcept;
  const DocumentCodec* documentCodec() const noexcept { return description_.documentCodec.get(); }

  // Each raises OperationNotSupportedException when the type does not offer it.
  Ptr<PtrInterface> newObject(const GenericArgs& args) const;
  Ptr<Entity> newEntityForDir(Dir& dir, const Name& name) const;
  Ptr<PtrInterface::NotifieeConst> genericNotifiee(const Ptr<PtrInterface const>& notifier,
                                                   AttributeNotification notification) const;
  Ptr<GenericIf> valueOfStrep(const String& text) const;

 private:
  const TypeDescription description_;
};

// Keeps a type in the registry; a module holds one for each of its types and so takes them out when
// it is unloaded.
class TypeRegistration {
 public:
  explicit TypeRegistration(TypeDescription description);
  TypeRegistration(const TypeRegistration&) = delete;
  TypeRegistration& operator=(const TypeRegistration&) = delete;
  ~TypeRegistration();

  const TypeNode& node() const noexcept { return node_; }

 private:
  const TypeNode node_;
};

// Registers a type. Raises NameInUseException when the name is taken.
[[nodiscard]] std::unique_ptr<TypeRegistration> typeNodeIs(TypeDescription description);

// The registered type of that name, or null.
const TypeNode* typeNode(std::string_view name);
// All registered types, in the order of registration.
std::vector<const TypeNode*> typeNodes();

}  // namespace Qel
