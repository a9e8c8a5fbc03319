#pragma once

#include <cstddef>
#include <vector>

#include "Qel/GenericValue.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/String.h"

namespace Qel {

class TypeNode;

// The reflective interface of one object or value: its attributes and operations by name.
//
// A name that the type does not have, and an access that an attribute does not offer, raise
// OperationNotSupportedException naming the type and the attribute.
class GenericIf : public PtrInterface {
 public:
  virtual const TypeNode& type() const = 0;
  // The text form; for objects that of a pointer.
  virtual String strep() const = 0;

  // In the order in which the type declares them.
  virtual std::vector<String> attributeNames() const = 0;
  virtual GenericValue attribute(const String& name) const = 0;
  virtual GenericValue attributeIs(const String& name, const GenericArgs& args) = 0;
  virtual GenericValue attributeDel(const String& name) = 0;
  virtual GenericValue operation(const String& name, const GenericArgs& args) = 0;

  // Comparisons with another of the same type; TypeException otherwise.
  virtual bool isEqual(const GenericIf& other) const = 0;
  virtual bool isLess(const GenericIf& other) const = 0;
  // Whether the value equals the default value of its type.
  virtual bool isZero() const = 0;
  virtual std::size_t hash() const = 0;
  // The address of the wrapped value or object as one of `type`; TypeException for any other type.
  virtual const void* pointer(const TypeNode& type) const = 0;
};

// The parts that wrappers share, and the refusals that they raise.
class GenericIfImpl : public GenericIf {
 public:
  explicit GenericIfImpl(const TypeNode& type) : type_(type) {}

  const TypeNode& type() const override { return type_; }
  std::vector<String> attributeNames() const override;
  GenericValue attributeIs(const String& name, const GenericArgs& args) override;
  GenericValue attributeDel(const String& name) override;
  GenericValue operation(const String& name, const GenericArgs& args) override;
  bool isEqual(const GenericIf& other) const override;
  bool isLess(const GenericIf& other) const override;
  bool isZero() const override;
  std::size_t hash() const override;

  [[noreturn]] static void throwUnhashableException(const String& typeName);
  [[noreturn]] static void throwNotSupported(const String& typeName, const String& name,
                                             const char* access);

 protected:
  // Raises TypeException unless `type` is the wrapped type.
  void needType(const TypeNode& type) const;

 private:
  const TypeNode& type_;
};

// The interface of an object whose type is registered. Raises TypeException for one whose type is
// not, RangeException "null ValidPtr" for null.
Ptr<GenericIf> genericIf(const Ptr<PtrInterface>& object);

}  // namespace Qel
