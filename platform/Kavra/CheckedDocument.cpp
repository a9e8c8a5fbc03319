#include "Kavra/CheckedDocument.h"

#include <cstddef>
#include <limits>
#include <string>
#include <utility>

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

}  // namespace

CheckedDocument::CheckedDocument(const Qel::String& path, Qel::Document found)
    : document(std::move(found)) {
  try {
    if (!isPath(path.view())) throw Qel::DocumentException({}, "this is not a path");
    const Qel::DocumentReader typeReader = Qel::DocumentReader(document).member("type");
    type = typeReader.readText(kAnyLength);
    const Qel::DocumentCodec* codec = findCodec(type);
    if (codec == nullptr) typeReader.fail(unknownType(type).view());
    change = codec->decode(document);
  } catch (const Qel::DocumentException& error) {
    misfit = error.text();
  }
}

Qel::Document canonicalFormOf(const Qel::Document& document, const Qel::String& type) {
  const Qel::DocumentCodec& codec = codecOf(type);
  return codec.documentOf(codec.fieldsOf(document));
}

const Qel::DocumentCodec& codecOf(const Qel::String& typeName) {
  const Qel::DocumentCodec* codec = findCodec(typeName);
  if (codec == nullptr) Qel::throwRangeException(unknownType(typeName));
  return *codec;
}

}  // namespace Kavra
