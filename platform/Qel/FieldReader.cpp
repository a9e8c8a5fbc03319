#include "Qel/FieldReader.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <functional>
#include <numeric>

#include "Qel/Number.h"

namespace Qel {

FieldReader::FieldReader(const DocumentCodec::Fields& fields)
    : begins_(std::bit_ceil(fields.size() + 1) + 1), places_(fields.size()) {
  fillRuns(fields);
  for (std::size_t run = 0; run + 1 < begins_.size(); ++run) {
    const auto begin = places_.begin() + begins_[run];
    const auto end = places_.begin() + begins_[run + 1];
    if (end - begin < 2) continue;
    const auto nameIn = [](const Place& place) -> const auto& { return place.field->first; };
    std::ranges::sort(begin, end, {}, nameIn);
    const auto twice = std::ranges::adjacent_find(begin, end, {}, nameIn);
    if (twice != end) throw DocumentException(nameIn(*twice), "stands twice");
  }
}

std::size_t FieldReader::runOf(std::string_view name) const noexcept {
  return std::hash<std::string_view>()(name) & (begins_.size() - 2);
}

void FieldReader::fillRuns(const DocumentCodec::Fields& fields) {
  for (const auto& field : fields) ++begins_[runOf(field.first)];
  // From the end of each run back to its beginning.
  std::partial_sum(begins_.begin(), begins_.end(), begins_.begin());
  for (const auto& field : fields) places_[--begins_[runOf(field.first)]] = {&field, false};
}

std::size_t FieldReader::placeOf(std::string_view name) const noexcept {
  const std::size_t run = runOf(name);
  std::size_t begin = begins_[run];
  std::size_t end = begins_[run + 1];
  while (begin < end) {
    const std::size_t middle = begin + (end - begin) / 2;
    const int order = name.compare(places_[middle].field->first);
    if (order == 0) return places_[middle].taken ? places_.size() : middle;
    if (order < 0) {
      end = middle;
    } else {
      begin = middle + 1;
    }
  }
  return places_.size();
}

std::string_view FieldReader::takeText(std::string_view name) {
  const std::size_t place = placeOf(name);
  if (place == places_.size()) throw DocumentException(name, "field is missing");
  places_[place].taken = true;
  return places_[place].field->second;
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
  const DocumentCodec::Fields::value_type* first = nullptr;
  for (const auto& [field, taken] : places_) {
    if (!taken && (first == nullptr || field->first < first->first)) first = field;
  }
  if (first != nullptr) throw DocumentException(first->first, "unknown field");
}

}  // namespace Qel
