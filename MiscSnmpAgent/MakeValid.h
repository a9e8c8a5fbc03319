#pragma once

#include <new>
#include <utility>

#include "Qel/Exception.h"
#include "Qel/Ptr.h"

namespace MiscSnmp::Agent {

// Creates an object, as Qel::make does. Raises Qel::RangeException "null ValidPtr" when there is no
// memory for it, which is how the factories of entities and machines report it.
template <class T, class... Args>
Qel::Ptr<T> makeValid(Args&&... args) {
  T* const object = new (std::nothrow) T(std::forward<Args>(args)...);
  if (object == nullptr) Qel::throwRangeException("null ValidPtr");
  return Qel::Ptr<T>::adopt(object);
}

}  // namespace MiscSnmp::Agent
