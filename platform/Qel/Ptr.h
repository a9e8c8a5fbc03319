#pragma once

#include <concepts>  // IWYU pragma: keep
#include <cstddef>
#include <functional>
#include <ostream>
#include <utility>

#include "Qel/PtrInterface.h"  // IWYU pragma: keep

namespace Qel {

// Counted reference to an object derived from PtrInterface, or null.
template <class T>
class Ptr {
 public:
  using Pointee = T;

  constexpr Ptr() noexcept = default;
  constexpr Ptr(std::nullptr_t) noexcept {}
  // Adds a reference to an object that somebody else already holds.
  explicit Ptr(T* object) noexcept : object_(object) { add(); }
  Ptr(const Ptr& other) noexcept : object_(other.object_) { add(); }
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  template <class U>
  requires std::convertible_to<U*, T*> Ptr(const Ptr<U>& other)
  noexcept : object_(other.get()) { add(); }
  ~Ptr() { release(); }

  Ptr& operator=(const Ptr& other) noexcept {
    Ptr(other).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& other) noexcept {
    Ptr(std::move(other)).swap(*this);
    return *this;
  }

  // Takes over the reference that a new object is born with; null, as an allocation that may fail
  // gives it, makes a null reference.
  static Ptr adopt(T* object) noexcept {
    Ptr ptr;
    ptr.object_ = object;
    if (object != nullptr) object->constructionEnds();
    return ptr;
  }

  T* get() const noexcept { return object_; }
  T& operator*() const noexcept { return *object_; }
  T* operator->() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

  void swap(Ptr& other) noexcept { std::swap(object_, other.object_); }

 private:
  void add() const noexcept {
    if (object_ != nullptr) object_->referenceNew();
  }
  void release() noexcept {
    if (object_ != nullptr) std::exchange(object_, nullptr)->referenceDel();
  }

  T* object_ = nullptr;
};

template <class T, class U>
bool operator==(const Ptr<T>& a, const Ptr<U>& b) noexcept {
  return a.get() == b.get();
}
template <class T>
bool operator==(const Ptr<T>& a, std::nullptr_t) noexcept {
  return a.get() == nullptr;
}

// A pointer as traces show it: its address, or "null".
template <class T>
std::ostream& operator<<(std::ostream& out, const Ptr<T>& ptr) {
  if (!ptr) return out << "null";
  return out << static_cast<const void*>(ptr.get());
}

// Creates an object; the only way to get a first reference.
template <class T, class... Args>
Ptr<T> make(Args&&... args) {
  return Ptr<T>::adopt(new T(std::forward<Args>(args)...));
}

// The same object as a T, or null when it is not one.
template <class T, class U>
Ptr<T> ptrCast(const Ptr<U>& ptr) noexcept {
  return Ptr<T>(dynamic_cast<T*>(ptr.get()));
}

}  // namespace Qel

template <class T>
struct std::hash<Qel::Ptr<T>> {
  std::size_t operator()(const Qel::Ptr<T>& ptr) const noexcept {
    return std::hash<T*>()(ptr.get());
  }
};
