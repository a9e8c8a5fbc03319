#include "Qel/GenericValue.h"

#include "Qel/Exception.h"
#include "Qel/Format.h"
#include "Qel/GenericIf.h"
#include "Qel/TypeNode.h"

namespace Qel {

namespace {

String typeNameOf(const PtrInterface* object) {
  if (object == nullptr) return "a null reference";
  const TypeNode* type = object->fwkType();
  return type != nullptr ? type->name() : String("an object of an unregistered type");
}

}  // namespace

GenericValue::GenericValue(Ptr<GenericIf> value) : value_(std::move(value)) {}

String GenericValue::kind() const {
  if (const auto* object = as<Object>()) return typeNameOf(object->get());
  if (const auto* object = as<ObjectConst>()) {
    return format("constant %s", typeNameOf(object->get()));
  }
  if (const auto* wrapped = as<Wrapped>()) {
    return *wrapped ? (*wrapped)->type().name() : typeNameOf(nullptr);
  }
  constexpr const char* kKinds[] = {"nothing", "a bool", "an unsigned number", "a number",
                                    "a text"};
  return kKinds[value_.index()];
}

void GenericValue::throwNot(const char* wanted) const {
  throwTypeException(format("expected %s but found %s", wanted, kind()));
}

bool GenericValue::toBool() const {
  if (const bool* value = as<bool>()) return *value;
  throwNot("a bool");
}

U32 GenericValue::toU32() const {
  if (const U32* value = as<U32>()) return *value;
  throwNot("an unsigned number");
}

double GenericValue::toDouble() const {
  if (const double* value = as<double>()) return *value;
  throwNot("a number");
}

String GenericValue::toString() const {
  if (const String* value = as<String>()) return *value;
  throwNot("a text");
}

Ptr<GenericIf> GenericValue::toGenericIf() const {
  if (const Wrapped* value = as<Wrapped>()) return *value;
  throwNot("a wrapped value");
}

}  // namespace Qel
