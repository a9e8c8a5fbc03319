#pragma once

#include <boost/multi_index/hashed_index.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index/ordered_index.hpp>
#include <boost/multi_index_container.hpp>
#include <cstddef>
#include <cstdint>

#include "Qel/Assert.h"
#include "Qel/Ptr.h"

namespace Qel {

// Hash map of counted values, looked up by key, walked in the order of insertion.
//
// An iterator holds a counted value and the number of its insertion, and finds its place again from
// that number at each step, so the map may change under a walk in any way: a removed entry is not
// visited, one that was present all along is visited exactly once, and one that is added is visited
// at the end. The map must outlive its iterators.
template <class Value, class Key>
class HashMap {
  struct Entry {
    Key key;
    std::uint64_t number;
    Ptr<Value> value;
  };
  struct ByKey {};
  struct ByNumber {};
  using Entries = boost::multi_index_container<
      Entry,
      boost::multi_index::indexed_by<
          boost::multi_index::hashed_unique<boost::multi_index::tag<ByKey>,
                                            boost::multi_index::member<Entry, Key, &Entry::key>>,
          boost::multi_index::ordered_unique<
              boost::multi_index::tag<ByNumber>,
              boost::multi_index::member<Entry, std::uint64_t, &Entry::number>>>>;

 public:
  class IteratorConst {
   public:
    // True on an entry, false at the end.
    explicit operator bool() const noexcept { return value_.operator bool(); }
    const Key& key() const noexcept { return key_; }
    const Ptr<Value>& ptr() const noexcept { return value_; }
    Value* operator->() const noexcept { return value_.get(); }

    void advance() {
      if (value_) seek(number_ + 1);
    }
    IteratorConst& operator++() {
      advance();
      return *this;
    }

   private:
    friend class HashMap;
    explicit IteratorConst(const HashMap& map) : map_(&map) { seek(0); }
    void seek(std::uint64_t number) {
      const auto& entries = map_->entries_.template get<ByNumber>();
      const auto found = entries.lower_bound(number);
      if (found == entries.end()) {
        value_ = nullptr;
        return;
      }
      key_ = found->key;
      number_ = found->number;
      value_ = found->value;
    }

    const HashMap* map_;
    Key key_{};
    std::uint64_t number_ = 0;
    Ptr<Value> value_;
  };

  std::size_t members() const noexcept { return entries_.size(); }
  bool empty() const noexcept { return entries_.empty(); }

  // The value under `key`, or null.
  Ptr<Value> operator[](const Key& key) const {
    const auto& entries = entries_.template get<ByKey>();
    const auto found = entries.find(key);
    return found == entries.end() ? Ptr<Value>() : found->value;
  }
  IteratorConst iteratorConst() const { return IteratorConst(*this); }

  // Stores a non-null `value` under `key`, which must be free.
  void valueIs(const Key& key, const Ptr<Value>& value) {
    const bool inserted = entries_.insert(Entry{key, nextNumber_++, value}).second;
    QEL_ASSERT(inserted && value);
  }
  // Removes and returns the value under `key`, or null.
  Ptr<Value> valueDel(const Key& key) {
    auto& entries = entries_.template get<ByKey>();
    const auto found = entries.find(key);
    if (found == entries.end()) return nullptr;
    Ptr<Value> removed = found->value;
    entries.erase(found);
    return removed;
  }

 private:
  Entries entries_;
  std::uint64_t nextNumber_ = 0;
};

}  // namespace Qel
