#pragma once

#include <boost/intrusive/list.hpp>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>  // IWYU pragma: keep

#include "Qel/Assert.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"

namespace Qel {

// Base of the elements of a LinkQueue: a key, a value and the links. Counted, so that whoever walks
// the queue may stand on an element that leaves it.
template <class Key, class Value>
class LinkQueueElement : public PtrInterface,
                         public boost::intrusive::list_base_hook<
                             boost::intrusive::link_mode<boost::intrusive::safe_link>> {
 public:
  LinkQueueElement(const Key& key, Value value) : key_(key), value_(std::move(value)) {}

  const Key& key() const noexcept { return key_; }
  const Value& value() const noexcept { return value_; }

 private:
  const Key key_;
  const Value value_;
};

// Queue of values under ascending keys: the first value pushed on an empty queue has key 0, each
// later one the key of the last element plus 1.
//
// Every change counts up version(). An iterator holds a counted element; when the queue has changed
// since it found it, it continues with the first element whose key is greater than that of the last
// one. The queue must outlive its iterators.
template <class Element, class Key, class Value>
class LinkQueue {
  using List = boost::intrusive::list<Element>;

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

  std::size_t members() const noexcept { return list_.size(); }
  bool empty() const noexcept { return list_.empty(); }
  std::uint64_t version() const noexcept { return version_; }

  // The element at the head or tail, or null.
  Ptr<Element const> first() const {
    return Ptr<Element const>(empty() ? nullptr : &list_.front());
  }
  Ptr<Element const> last() const { return Ptr<Element const>(empty() ? nullptr : &list_.back()); }
  // The element behind one that is in this queue, or null.
  Ptr<Element const> successor(const Element& element) const {
    const auto next = std::next(list_.iterator_to(element));
    return Ptr<Element const>(next == list_.end() ? nullptr : &*next);
  }
  // The element under `key`, or null: the first and the last are tried before the walk.
  Ptr<Element const> operator[](const Key& key) const {
    if (empty()) return nullptr;
    if (list_.front().key() == key) return first();
    if (list_.back().key() == key) return last();
    for (const Element& element : list_) {
      if (element.key() == key) return Ptr<Element const>(&element);
    }
    return nullptr;
  }
  IteratorConst iteratorConst() const { return IteratorConst(*this); }

  // Appends `value` and returns its key.
  Key push(Value value) {
    const Key key = empty() ? Key{} : static_cast<Key>(list_.back().key() + 1);
    QEL_ASSERT(empty() || key > list_.back().key());
    const Ptr<Element> element = make<Element>(key, std::move(value));
    element->referenceNew();  // the queue's own
    list_.push_back(*element);
    ++version_;
    return key;
  }
  // Removes and returns the element under `key`, or null.
  Ptr<Element> del(const Key& key) {
    for (auto place = list_.begin(); place != list_.end(); ++place) {
      if (place->key() == key) return take(place);
    }
    return nullptr;
  }
  // Removes and returns the element at the head, or null.
  Ptr<Element> pop() { return empty() ? Ptr<Element>() : take(list_.begin()); }
  void clear() {
    while (!empty()) take(list_.begin());
  }

 private:
  Ptr<Element const> firstAfter(const Key& key) const {
    for (const Element& element : list_) {
      if (key < element.key()) return Ptr<Element const>(&element);
    }
    return nullptr;
  }
  Ptr<Element> take(typename List::iterator place) {
    Element& element = *place;
    list_.erase(place);
    ++version_;
    return Ptr<Element>::adopt(&element);
  }

  List list_;
  std::uint64_t version_ = 0;
};

}  // namespace Qel
