#include "Kavra/CheckedDocument.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include "Kavra/DocumentSize.h"
#include "Kavra/Path.h"
#include "Qel/Exception.h"
#include "Qel/Strep.h"
#include "Qel/TypeNode.h"

namespace Kavra {

namespace {

constexpr std::size_t kAnyLength = std::numeric_limits<std::size_t>::max();

std::string knownTypes() {
  std::string names;
  for (const Qel::TypeNode* node : Qel::typeNodes()) {
    if (node->documentCodec() == nullptr) continue;
    names += (names.empty() ? "" : ", ") + node->name().stdString();
  }
  return names.empty() ? "none" : names;
}

Qel::String unknownType(const Qel::String& name) {
  return "unknown type " + Qel::valueToStrep(name) + "; known are: " + knownTypes();
}

const Qel::DocumentCodec* findCodec(const Qel::String& typeName) {
  const Qel::TypeNode* node = Qel::typeNode(typeName.view());
  return node == nullptr ? nullptr : node->documentCodec();
}

Qel::DocumentReader typeReaderOf(const Qel::Document& document) {
  return Qel::DocumentReader(document).member("type");
}

template <class T>
bool addHash(std::size_t& sum, const Qel::Document& value) {
  const T* held = value.as<T>();
  if (held != nullptr) sum = 31 * sum + std::hash<T>()(*held);
  return held != nullptr;
}

std::size_t fingerprintOf(const Qel::Document& value) {
  std::size_t sum = std::hash<std::string_view>()(value.kind());
  if (const auto* map = value.as<Qel::Document::Map>()) {
    for (const auto& [name, member] : *map) {
      sum = 31 * (31 * sum + std::hash<Qel::String>()(name)) + fingerprintOf(member);
    }
  } else if (const auto* list = value.as<Qel::Document::List>()) {
    for (const Qel::Document& item : *list) sum = 31 * sum + fingerprintOf(item);
  } else {
    (void)(addHash<bool>(sum, value) || addHash<std::int64_t>(sum, value) ||
           addHash<std::uint64_t>(sum, value) || addHash<double>(sum, value) ||
           addHash<Qel::String>(sum, value));
  }
  return sum;
}

}  // namespace

CheckedDocument::CheckedDocument(const Qel::String& path, Qel::Document found)
    : document(std::move(found)) {
  try {
    if (!isPath(path.view())) throw Qel::DocumentException({}, "this is not a path");
    type = typeOf(document);
    const Qel::DocumentCodec* codec = findCodec(type);
    if (codec == nullptr) typeReaderOf(document).fail(unknownType(type).view());
    (void)valuesOf(document);
    change = codec->decode(document);
  } catch (const Qel::DocumentException& error) {
    misfit = error.text();
    fingerprint = fingerprintOf(document);
    document = {};
  }
}

Qel::String typeOf(const Qel::Document& document) {
  return typeReaderOf(document).readText(kAnyLength);
}

Qel::Document canonicalFormOf(const Qel::Document& document) {
  return codecOf(typeOf(document)).canonicalFormOf(document);
}

const Qel::DocumentCodec& codecOf(const Qel::String& typeName) {
  const Qel::DocumentCodec* codec = findCodec(typeName);
  if (codec == nullptr) Qel::throwRangeException(unknownType(typeName));
  return *codec;
}

}  // namespace Kavra
