#include "Kavra/DocumentSize.h"

#include <fmt/format.h>

#include <string_view>

#include "Qel/Limits.h"

namespace Kavra {

namespace {

// Adds a value and all that it holds, itself last, as one that reads it from its text does. False
// at the first that is too much, with the way to it in `place`.
bool addAll(DocumentSize& size, const Qel::Document& value, std::size_t nameOctets,
            std::string& place) {
  const auto failIn = [&place](auto name) {
    place.insert(0, fmt::format("/{}", name));
    return false;
  };
  if (const auto* map = value.as<Qel::Document::Map>()) {
    for (const auto& [name, member] : *map) {
      if (!addAll(size, member, name.bytes(), place)) return failIn(name.view());
    }
  } else if (const auto* list = value.as<Qel::Document::List>()) {
    for (std::size_t i = 0; i < list->size(); ++i) {
      if (!addAll(size, (*list)[i], 0, place)) return failIn(i);
    }
  }
  return size.add(nameOctets + octetsOf(value));
}

}  // namespace

bool DocumentSize::add(std::size_t octets) noexcept {
  ++values_;
  octets_ += octets;
  return values_ <= Qel::Limits::kMostDocumentValues && octets_ <= Qel::Limits::kMostDocumentOctets;
}

std::string DocumentSize::problem() const {
  return values_ > Qel::Limits::kMostDocumentValues
             ? fmt::format("the document has more than {} values", Qel::Limits::kMostDocumentValues)
             : fmt::format("the document's texts and names take more than {} octets",
                           Qel::Limits::kMostDocumentOctets);
}

std::size_t octetsOf(const Qel::Document& value) noexcept {
  const auto* text = value.as<Qel::String>();
  return text == nullptr ? 0 : text->bytes();
}

std::size_t valuesOf(const Qel::Document& document) {
  DocumentSize size;
  std::string place;
  if (!addAll(size, document, 0, place)) throw Qel::DocumentException(place, size.problem());
  return size.values();
}

}  // namespace Kavra
