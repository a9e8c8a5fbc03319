#include "Qel/GenericIf.h"

#include <string_view>

#include "Qel/Exception.h"
#include "Qel/Format.h"
#include "Qel/Strep.h"
#include "Qel/TypeNode.h"

namespace Qel {

namespace {

// The interface of an object, driven by what its type declares.
class ObjectIf final : public GenericIfImpl {
 public:
  ObjectIf(const TypeNode& type, const Ptr<PtrInterface>& object)
      : GenericIfImpl(type), object_(object) {}

  String strep() const override { return valueToStrepOfRawPtr(object_.get(), type().name()); }

  GenericValue attribute(const String& name) const override {
    const GenericAttribute* found = type().attribute(name);
    if (found == nullptr || !found->read) throwNotSupported(type().name(), name, "read");
    return found->read(*object_);
  }
  GenericValue attributeIs(const String& name, const GenericArgs& args) override {
    const GenericAttribute* found = type().attribute(name);
    if (found == nullptr || !found->set) throwNotSupported(type().name(), name, "set");
    return found->set(*object_, args);
  }
  GenericValue attributeDel(const String& name) override {
    const GenericAttribute* found = type().attribute(name);
    if (found == nullptr || !found->del) throwNotSupported(type().name(), name, "delete");
    return found->del(*object_);
  }
  GenericValue operation(const String& name, const GenericArgs& args) override {
    const GenericOperation* found = type().operation(name);
    if (found == nullptr || !found->call) throwNotSupported(type().name(), name, "call");
    return found->call(*object_, args);
  }
  // Objects are compared by identity.
  bool isEqual(const GenericIf& other) const override {
    return other.pointer(type()) == object_.get();
  }
  const void* pointer(const TypeNode& wanted) const override {
    needType(wanted);
    return object_.get();
  }

 private:
  const Ptr<PtrInterface> object_;
};

}  // namespace

std::vector<String> GenericIfImpl::attributeNames() const {
  std::vector<String> names;
  for (const GenericAttribute& attribute : type_.attributes()) names.push_back(attribute.name);
  return names;
}

GenericValue GenericIfImpl::attributeIs(const String& name, const GenericArgs& /*args*/) {
  throwNotSupported(type_.name(), name, "set");
}

GenericValue GenericIfImpl::attributeDel(const String& name) {
  throwNotSupported(type_.name(), name, "delete");
}

GenericValue GenericIfImpl::operation(const String& name, const GenericArgs& /*args*/) {
  throwNotSupported(type_.name(), name, "call");
}

bool GenericIfImpl::isEqual(const GenericIf& /*other*/) const {
  throwNotSupported(type_.name(), "equality", "compare");
}

bool GenericIfImpl::isLess(const GenericIf& /*other*/) const {
  throwNotSupported(type_.name(), "order", "compare");
}

bool GenericIfImpl::isZero() const { throwNotSupported(type_.name(), "zero", "compare"); }

std::size_t GenericIfImpl::hash() const { throwUnhashableException(type_.name()); }

void GenericIfImpl::throwUnhashableException(const String& typeName) {
  throw UnhashableException(format("type %s is not hashable", typeName));
}

void GenericIfImpl::throwNotSupported(const String& typeName, const String& name,
                                      const char* access) {
  throwOperationNotSupportedException(
      format("type %s does not support to %s %s", typeName, std::string_view(access), name));
}

void GenericIfImpl::needType(const TypeNode& type) const {
  if (&type == &type_) return;
  throwTypeException(format("expected type %s but found %s", type.name(), type_.name()));
}

Ptr<GenericIf> genericIf(const Ptr<PtrInterface>& object) {
  if (!object) throwRangeException("null ValidPtr");
  const TypeNode* type = object->fwkType();
  if (type == nullptr) throwTypeException("the object is of an unregistered type");
  return make<ObjectIf>(*type, object);
}

}  // namespace Qel
