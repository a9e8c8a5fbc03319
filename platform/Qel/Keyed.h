#pragma once

namespace Qel {

// The key of an object for its lifetime, as a base class: between PtrInterface and what follows, it
// takes no room, since the reference count leaves half a word.
template <class Key>
class Keyed {
 public:
  const Key& key() const noexcept { return key_; }

 protected:
  explicit constexpr Keyed(const Key& key) : key_(key) {}
  ~Keyed() = default;

 private:
  const Key key_;
};

}  // namespace Qel
