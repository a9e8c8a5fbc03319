#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <new>

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

// Finds elements of one such set: the one that was found last, and the one behind it, without a
// search, as walks ask for them; any other in an array of the keys, once the set rests, as a search
// from element to element waits for memory at each.
//
// The set rests when it has been searched in vain for its array as often as kRest times fits into
// its members: so a search costs O(log n) on average, however the set changes. The array takes a
// key and a pointer a member; a set of few members has none, and where there is no memory for it,
// none is made.
//
// To be forgotten whenever the set changes. Finding remembers, so several threads may not find at
// once.
template <class Tree>
class TreeFinder {
 public:
  using Key = typename Tree::key_type;
  using Element = typename Tree::const_pointer;

  // The element under `key`, or null.
  Element find(const Tree& tree, const Key& key) {
    if (elements_) return findAtRest(key);
    if (last_ != nullptr) {
      if (key == keyOf(*last_)) return last_;
      const Element next = behind(tree, *last_);
      if (next != nullptr && key == keyOf(*next)) return last_ = next;
    }
    if (tree.size() >= kFewest && ++searches_ * kRest >= tree.size() && rests(tree)) {
      return findAtRest(key);
    }
    const Element found = findInTree(tree, key);
    if (found != nullptr) last_ = found;
    return found;
  }
  // The element behind one that is in the set, or null. At once behind the one that was found last.
  Element next(const Tree& tree, const typename Tree::value_type& element) const {
    if (elements_ && elements_[place_] == &element) {
      return place_ + 1 == members_ ? nullptr : elements_[place_ + 1];
    }
    return behind(tree, element);
  }
  void forget() noexcept {
    last_ = nullptr;
    searches_ = 0;
    if (!elements_) return;
    elements_ = nullptr;
    keys_ = nullptr;
  }

 private:
  static constexpr std::size_t kRest = 64;
  static constexpr std::size_t kFewest = 16;  // members that an array pays for

  static const Key& keyOf(const typename Tree::value_type& element) {
    return typename Tree::key_of_value()(element);
  }
  static Element behind(const Tree& tree, const typename Tree::value_type& element) {
    const auto next = std::next(tree.iterator_to(element));
    return next == tree.end() ? nullptr : &*next;
  }

  Element findAtRest(const Key& key) {
    if (key == keys_[place_]) return elements_[place_];
    std::size_t place = place_ + 1;
    if (place == members_ || !(key == keys_[place])) {
      const Key* const end = keys_.get() + members_;
      const Key* const found = std::lower_bound(const_cast<const Key*>(keys_.get()), end, key);
      if (found == end || !(key == *found)) return nullptr;
      place = static_cast<std::size_t>(found - keys_.get());
    }
    place_ = place;
    // Walks ask for it next.
    if (place + 1 < members_) __builtin_prefetch(elements_[place + 1]);
    return elements_[place];
  }

  // Whether there is an array now.
  bool rests(const Tree& tree) {
    members_ = tree.size();
    elements_.reset(new (std::nothrow) Element[members_]);
    if (elements_) keys_.reset(new (std::nothrow) Key[members_]);
    if (!keys_) {
      forget();
      return false;
    }
    place_ = 0;
    for (const auto& element : tree) {
      elements_[place_] = &element;
      keys_[place_++] = keyOf(element);
    }
    place_ = 0;
    return true;
  }

  Element last_ = nullptr;    // that was found
  std::size_t searches_ = 0;  // since the set changed
  // At rest: the members in their order, their keys, and the place of the one found last.
  std::unique_ptr<Element[]> elements_;
  std::unique_ptr<Key[]> keys_;
  std::size_t members_ = 0;
  std::size_t place_ = 0;
};

}  // namespace Qel
