#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

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

  bool has(std::string_view name) const { return placeOf(name) < places_.size(); }

  // Each takes the field out and raises when it is absent or not of that form.
  U32 takeU32(std::string_view name);
  bool takeBool(std::string_view name);
  double takeFiniteNumber(std::string_view name);
  std::string_view takeText(std::string_view name);

  // Raises, naming one, when fields are left.
  void needNoMore() const;

 private:
  struct Place {
    const DocumentCodec::Fields::value_type* field;
    bool taken;
  };

  std::size_t runOf(std::string_view name) const noexcept;
  void fillRuns(const DocumentCodec::Fields& fields);
  // The place of a field that is not taken, or that behind the last.
  std::size_t placeOf(std::string_view name) const noexcept;

  // A large document has hundreds of thousands of fields: the hash of a name tells the run of
  // places that it is in, mostly of one. Whoever publishes chooses the names, perhaps all of one
  // hash value, so a run is sorted by name.
  std::vector<std::uint32_t> begins_;  // of each run, and of one behind the last
  std::vector<Place> places_;
};

}  // namespace Qel
