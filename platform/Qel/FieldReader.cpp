#include "Qel/FieldReader.h"

#include <cmath>
#include <string_view>
#include <utility>

#include "Qel/Number.h"

namespace Qel {

FieldReader::FieldReader(const DocumentCodec::Fields& fields) {
  for (const auto& [name, value] : fields) {
    if (!fields_.emplace(name, value).second) throw DocumentException(name, "stands twice");
  }
}

std::string FieldReader::takeText(const std::string& name) {
  const auto found = fields_.find(name);
  if (found == fields_.end()) throw DocumentException(name, "field is missing");
  std::string value = std::move(found->second);
  fields_.erase(found);
  return value;
}

U32 FieldReader::takeU32(const std::string& name) {
  const auto value = numberOf<U32>(takeText(name));
  if (!value) throw DocumentException(name, "not an unsigned 32-bit number");
  return *value;
}

bool FieldReader::takeBool(const std::string& name) {
  const std::string value = takeText(name);
  if (value != "true" && value != "false") throw DocumentException(name, "not true or false");
  return value == "true";
}

double FieldReader::takeFiniteNumber(const std::string& name) {
  const auto value = numberOf<double>(takeText(name));
  if (!value || !std::isfinite(*value)) throw DocumentException(name, "not a finite number");
  return *value;
}

void FieldReader::needNoMore() const {
  if (!fields_.empty()) throw DocumentException(fields_.begin()->first, "unknown field");
}

}  // namespace Qel
