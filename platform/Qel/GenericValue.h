#pragma once

#include <utility>
#include <variant>
#include <vector>

#include "Qel/Name.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/String.h"
#include "Qel/Types.h"

namespace Qel {

class GenericIf;

// A value as it passes through the reflective interface: nothing, bool, number, text, a reference
// to an object (constant or not), or a wrapped value of a registered type.
class GenericValue {
 public:
  GenericValue() = default;
  GenericValue(bool value) : value_(value) {}
  GenericValue(U32 value) : value_(value) {}
  GenericValue(double value) : value_(value) {}
  GenericValue(const char* value) : value_(String(value)) {}
  GenericValue(String value) : value_(std::move(value)) {}
  GenericValue(const Name& value) : value_(value.string()) {}
  GenericValue(Ptr<GenericIf> value);
  // An address is none of these, least of all a bool.
  GenericValue(const void* value) = delete;
  template <class T>
  GenericValue(const Ptr<T>& object) : value_(objectOf(object)) {}

  bool isNothing() const noexcept { return std::holds_alternative<std::monostate>(value_); }
  // The value of exactly that alternative, or null.
  template <class T>
  const T* as() const noexcept {
    return std::get_if<T>(&value_);
  }
  // For messages: "nothing", "a bool", ..., or the type of the object.
  String kind() const;

  // Unwrapping. Each raises TypeException when the value is of another type; an object reference
  // must be of type T or derived, and constant only where T is. Nothing unwraps to a null
  // reference.
  bool toBool() const;
  U32 toU32() const;
  double toDouble() const;
  String toString() const;
  Name toName() const { return Name(toString()); }
  Ptr<GenericIf> toGenericIf() const;
  template <class T>
  Ptr<T> toPtr() const;

 private:
  using Object = Ptr<PtrInterface>;
  using ObjectConst = Ptr<PtrInterface const>;
  using Wrapped = Ptr<GenericIf>;

  static ObjectConst objectOf(const Ptr<PtrInterface const>& object) { return object; }
  static Object objectOf(const Ptr<PtrInterface>& object) { return object; }
  template <class T>
  static auto objectOf(const Ptr<T>& object) {
    if constexpr (std::is_convertible_v<T*, GenericIf*>) {
      return Wrapped(object);
    } else if constexpr (std::is_const_v<T>) {
      return ObjectConst(object);
    } else {
      return Object(object);
    }
  }
  [[noreturn]] void throwNot(const char* wanted) const;

  std::variant<std::monostate, bool, U32, double, String, Object, ObjectConst, Wrapped> value_;
};

using GenericArgs = std::vector<GenericValue>;

template <class T>
Ptr<T> GenericValue::toPtr() const {
  if (isNothing()) return nullptr;
  if (const Object* object = as<Object>()) {
    if (!*object) return nullptr;
    if (Ptr<T> ptr = ptrCast<T>(*object)) return ptr;
  }
  if constexpr (std::is_const_v<T>) {
    if (const ObjectConst* object = as<ObjectConst>()) {
      if (!*object) return nullptr;
      if (Ptr<T> ptr = ptrCast<T>(*object)) return ptr;
    }
  }
  throwNot("a reference to an object of another type");
}

}  // namespace Qel
