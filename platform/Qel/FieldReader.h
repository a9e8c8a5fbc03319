#pragma once

#include <memory_resource>
#include <string_view>
#include <unordered_map>

#include "Qel/Document.h"
#include "Qel/Types.h"

namespace Qel {

// Takes the fields of a document's flat form one by one. Every refusal raises DocumentException
// whose place is the field's name.
class FieldReader {
 public:
  // `fields` must outlive the reader. Raises when a name occurs twice.
  explicit FieldReader(const DocumentCodec::Fields& fields);
  explicit FieldReader(DocumentCodec::Fields&& fields) = delete;

  bool has(std::string_view name) const { return fields_.contains(name); }

  // Each takes the field out and raises when it is absent or not of that form.
  U32 takeU32(std::string_view name);
  bool takeBool(std::string_view name);
  double takeFiniteNumber(std::string_view name);
  std::string_view takeText(std::string_view name);

  // Raises, naming one, when fields are left.
  void needNoMore() const;

 private:
  // A large document has hundreds of thousands, and all go together.
  std::pmr::monotonic_buffer_resource memory_;
  std::pmr::unordered_map<std::string_view, std::string_view> fields_{&memory_};
};

}  // namespace Qel
