#pragma once

#include <boost/intrusive/set.hpp>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>  // IWYU pragma: keep

#include "Qel/Assert.h"
#include "Qel/Keyed.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"
#include "Qel/TreeFinder.h"

namespace Qel {

// Base of the elements of a LinkQueue: a key, a value and the links. Counted, so that whoever walks
// the queue may stand on an element that leaves it.
template <class Key, class Value>
class LinkQueueElement : public PtrInterface,
                         public Keyed<Key>,
                         public boost::intrusive::set_base_hook<
                             boost::intrusive::link_mode<boost::intrusive::safe_link>,
                             boost::intrusive::optimize_size<true>> {
 public:
  LinkQueueElement(const Key& key, Value value) : Keyed<Key>(key), value_(std::move(value)) {}

  const Value& value() const noexcept { return value_; }

 private:
  const Value value_;
};

// Queue of values under ascending keys: the first value pushed on an empty queue has key 0, each
// later one the key of the last element plus 1.
//
// The links are those of a balanced tree, in which keys that only ever grow are appended: an
// element is found, and the place behind a key, in O(log n), wherever elements have left; the steps
// of a walk and what happens at either end take constant time on average.
//
// Every change counts up version(). An iterator holds a counted element; when the queue has changed
// since it found it, it continues with the first element whose key is greater than that of the last
// one. The queue must outlive its iterators.
template <class Element, class Key, class Value>
class LinkQueue {
  struct KeyOf {
    using type = Key;
    const Key& operator()(const Element& element) const noexcept { return element.key(); }
  };
  using Tree = boost::intrusive::set<Element, boost::intrusive::key_of_value<KeyOf>>;

 public:
  class IteratorConst {
   public:
    // True on an element, false at the end.
    explicit operator bool() const noexcept { return element_.operator bool(); }
    const Key& key() const noexcept { return element_->key(); }
    const Value& value() const noexcept { return element_->value(); }

    void advance() {
      if (!element_) return;
      const Ptr<Element const> next = queue_->version_ == version_
                                          ? queue_->successor(*element_)
                                          : queue_->firstAfter(element_->key());
      version_ = queue_->version_;
      element_ = next;
    }
    IteratorConst& operator++() {
      advance();
      return *this;
    }

   private:
    friend class LinkQueue;
    explicit IteratorConst(const LinkQueue& queue)
        : queue_(&queue), element_(queue.first()), version_(queue.version_) {}

    const LinkQueue* queue_;
    Ptr<Element const> element_;
    std::uint64_t version_;
  };

  LinkQueue() = default;
  LinkQueue(const LinkQueue&) = delete;
  LinkQueue& operator=(const LinkQueue&) = delete;
  ~LinkQueue() { clear(); }

  std::size_t members() const noexcept { return elements_.size(); }
  bool empty() const noexcept { return elements_.empty(); }
  std::uint64_t version() const noexcept { return version_; }

  // The element at the head or tail, or null.
  Ptr<Element const> first() const { return elementAt(elements_.begin()); }
  Ptr<Element const> last() const {
    return empty() ? nullptr : elementAt(std::prev(elements_.end()));
  }
  // The element behind one that is in this queue, or null.
  Ptr<Element const> successor(const Element& element) const {
    return elementAt(std::next(elements_.iterator_to(element)));
  }
  // The element under `key`, or null.
  Ptr<Element const> operator[](const Key& key) const {
    return Ptr<Element const>(findInTree(elements_, key));
  }
  // The value under `key`, or null; there until the element leaves.
  const Value* value(const Key& key) const {
    const Element* const found = findInTree(elements_, key);
    return found != nullptr ? &found->value() : nullptr;
  }
  IteratorConst iteratorConst() const { return IteratorConst(*this); }

  // Appends `value` and returns its key.
  Key push(Value value) {
    const Key key = empty() ? Key{} : static_cast<Key>(lastKey() + 1);
    QEL_ASSERT(empty() || key > lastKey());
    const Ptr<Element> element = make<Element>(key, std::move(value));
    element->referenceNew();  // the queue's own
    elements_.push_back(*element);
    ++version_;
    return key;
  }
  // Removes and returns the element under `key`, or null.
  Ptr<Element> del(const Key& key) { return take(elements_.find(key)); }
  // Removes and returns the element at the head, or null.
  Ptr<Element> pop() { return take(elements_.begin()); }
  void clear() {
    if (empty()) return;
    ++version_;
    elements_.clear_and_dispose([](Element* element) { element->referenceDel(); });
  }

 private:
  const Key& lastKey() const { return std::prev(elements_.end())->key(); }
  Ptr<Element const> elementAt(typename Tree::const_iterator place) const {
    return Ptr<Element const>(place == elements_.end() ? nullptr : &*place);
  }
  Ptr<Element const> firstAfter(const Key& key) const {
    return elementAt(elements_.upper_bound(key));
  }
  Ptr<Element> take(typename Tree::iterator place) {
    if (place == elements_.end()) return nullptr;
    Element& element = *place;
    elements_.erase(place);
    ++version_;
    return Ptr<Element>::adopt(&element);
  }

  Tree elements_;
  std::uint64_t version_ = 0;
};

}  // namespace Qel
