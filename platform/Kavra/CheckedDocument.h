#pragma once

#include <cstddef>

#include "Qel/Document.h"
#include "Qel/String.h"

namespace Kavra {

// A document as it was found in a state database, checked once: its path, and the whole of it
// against the type that it names.
//
// It fits when `misfit` is empty: then `change` makes any entity of that type equal to it. Of one
// that does not, only the type, the reason and what tells it from others are kept.
struct CheckedDocument {
  // Never raises: what is wrong with the document ends up in `misfit`.
  CheckedDocument(const Qel::String& path, Qel::Document found);

  bool fits() const noexcept { return misfit.empty(); }

  Qel::Document document;  // null when it does not fit
  Qel::String type;        // empty when the document names none
  Qel::DocumentCodec::Change change;
  Qel::String misfit;           // place and problem
  std::size_t fingerprint = 0;  // of a misfit; the same for equal documents
};

// The type that a document names. Raises DocumentException where it names none.
Qel::String typeOf(const Qel::Document& document);

// The canonical form of a document, in which every store gives it back: what may be left out is
// left out, reloads and members stand in a fixed order, and so on. Raises DocumentException for one
// that does not fit its type.
Qel::Document canonicalFormOf(const Qel::Document& document);

// The codec of a registered type that documents can have. Raises RangeException, naming those that
// there are, for any other name.
const Qel::DocumentCodec& codecOf(const Qel::String& typeName);

}  // namespace Kavra
