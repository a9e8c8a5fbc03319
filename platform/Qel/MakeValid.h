#pragma once

#include <new>
#include <utility>

#include "Qel/Exception.h"
#include "Qel/Ptr.h"

namespace Qel {

// Creates an object, as make() does. Raises RangeException "null ValidPtr" when there is no memory
// for it, which is how the factories of entities and machines report it.
template <class T, class... Args>
Ptr<T> makeValid(Args&&... args) {
  T* const object = new (std::nothrow) T(std::forward<Args>(args)...);
  if (object == nullptr) throwRangeException("null ValidPtr");
  return Ptr<T>::adopt(object);
}

}  // namespace Qel
