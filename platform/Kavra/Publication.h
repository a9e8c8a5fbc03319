#pragma once

#include "Qel/Document.h"
#include "Qel/String.h"

namespace Kavra {

// A document as it was found in a state database, checked once: its path, and the whole of it
// against the type that it names.
//
// It fits when `misfit` is empty: then `change` makes any entity of that type equal to it.
struct Publication {
  // Never raises: what is wrong with the document ends up in `misfit`.
  Publication(const Qel::String& path, Qel::Document found);

  bool fits() const noexcept { return misfit.empty(); }

  Qel::Document document;
  Qel::String type;  // empty when the document names none
  Qel::DocumentCodec::Change change;
  Qel::String misfit;  // place and problem
};

// The codec of a registered type that documents can have. Raises RangeException, naming those that
// there are, for any other name.
const Qel::DocumentCodec& codecOf(const Qel::String& typeName);

}  // namespace Kavra
