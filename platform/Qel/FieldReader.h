#pragma once

#include <map>
#include <string>

#include "Qel/Document.h"
#include "Qel/Types.h"

namespace Qel {

// Takes the fields of a document's flat form one by one. Every refusal raises DocumentException
// whose place is the field's name.
class FieldReader {
 public:
  // Raises when a name occurs twice.
  explicit FieldReader(const DocumentCodec::Fields& fields);

  bool has(const std::string& name) const { return fields_.contains(name); }

  // Each takes the field out and raises when it is absent or not of that form.
  U32 takeU32(const std::string& name);
  bool takeBool(const std::string& name);
  double takeFiniteNumber(const std::string& name);
  std::string takeText(const std::string& name);

  // Raises, naming one, when fields are left.
  void needNoMore() const;

 private:
  std::map<std::string, std::string> fields_;
};

}  // namespace Qel
