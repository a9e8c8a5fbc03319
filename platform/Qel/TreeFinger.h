#pragma once

#include <iterator>

namespace Qel {

// The element under `key` in a boost::intrusive::set that orders its elements by their keys, or
// null. Ends where it finds the element; the set's own search always goes on to a leaf.
template <class Tree>
typename Tree::const_pointer findInTree(const Tree& tree, const typename Tree::key_type& key) {
  const typename Tree::key_of_value keyOf;
  auto place = tree.root();
  if (place == tree.end()) return nullptr;
  while (!!place) {
    const typename Tree::key_type& present = keyOf(*place);
    if (key == present) return &*place;
    if (key < present) {
      place.go_left();
    } else {
      place.go_right();
    }
  }
  return nullptr;
}

// Finds elements of one such set for who mostly asks for the last one again or for the next one,
// as walks do: those are found without a search. To be forgotten whenever the set changes. Finding
// remembers, so several threads may not find at once.
template <class Tree>
class TreeFinger {
 public:
  // The element under `key`, or null.
  typename Tree::const_pointer find(const Tree& tree, const typename Tree::key_type& key) {
    const typename Tree::key_of_value keyOf;
    if (last_ != nullptr) {
      if (key == keyOf(*last_)) return last_;
      const auto next = std::next(tree.iterator_to(*last_));
      if (next != tree.end() && key == keyOf(*next)) return last_ = &*next;
    }
    const auto found = findInTree(tree, key);
    if (found != nullptr) last_ = found;
    return found;
  }
  void forget() { last_ = nullptr; }

 private:
  typename Tree::const_pointer last_ = nullptr;
};

}  // namespace Qel
