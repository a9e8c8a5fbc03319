#include "Qel/FieldReader.h"

#include <algorithm>
#include <cmath>

#include "Qel/Number.h"

namespace Qel {

FieldReader::FieldReader(const DocumentCodec::Fields& fields) {
  fields_.reserve(fields.size());
  for (const auto& [name, value] : fields) {
    if (!fields_.emplace(name, value).second) throw DocumentException(name, "stands twice");
  }
}

std::string_view FieldReader::takeText(std::string_view name) {
  const auto found = fields_.find(name);
  if (found == fields_.end()) throw DocumentException(name, "field is missing");
  const std::string_view value = found->second;
  fields_.erase(found);
  return value;
}

U32 FieldReader::takeU32(std::string_view name) {
  const auto value = numberOf<U32>(takeText(name));
  if (!value) throw DocumentException(name, "not an unsigned 32-bit number");
  return *value;
}

bool FieldReader::takeBool(std::string_view name) {
  const std::string_view value = takeText(name);
  if (value != "true" && value != "false") throw DocumentException(name, "not true or false");
  return value == "true";
}

double FieldReader::takeFiniteNumber(std::string_view name) {
  const auto value = numberOf<double>(takeText(name));
  if (!value || !std::isfinite(*value)) throw DocumentException(name, "not a finite number");
  return *value;
}

void FieldReader::needNoMore() const {
  const auto first = std::min_element(
      fields_.begin(), fields_.end(),
      [](const auto& field, const auto& other) { return field.first < other.first; });
  if (first != fields_.end()) throw DocumentException(first->first, "unknown field");
}

}  // namespace Qel
