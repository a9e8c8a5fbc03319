#pragma once

#include <boost/intrusive/set.hpp>
#include <cstddef>
#include <cstdint>

#include "Qel/Assert.h"
#include "Qel/Ptr.h"
#include "Qel/TreeFinder.h"

namespace Qel {

// The links by which an ordered map holds a row; zero while the row is in no map.
class RbTreeMapLinks : public boost::intrusive::set_base_hook<
                           boost::intrusive::link_mode<boost::intrusive::safe_link>,
                           boost::intrusive::optimize_size<true>> {};

// Ordered map of counted rows: no two of equal keys, the least by operator< first.
//
// Value is the row, derived from PtrInterface; Node is Value or the base of it that carries the
// RbTreeMapLinks and has `const Key& fwkKey() const`, which never changes while the row is in the
// map. Rows carry their own links, so a row is in one map at most, and inserting allocates nothing.
//
// Every change counts up version(). An iterator holds a counted row and the version at which it
// found it: when the map has changed since, it finds its place again by key, so it never visits a
// removed row, never repeats one, and never starts over. The map must outlive its iterators.
template <class Value, class Key, class Node = Value>
class RbTreeMap {
  struct KeyOf {
    using type = Key;
    const Key& operator()(const Node& node) const { return node.fwkKey(); }
  };
  using Tree = boost::intrusive::set<Node, boost::intrusive::base_hook<RbTreeMapLinks>,
                                     boost::intrusive::key_of_value<KeyOf>>;

  template <class Row>
  class BasicIterator {
   public:
    BasicIterator() = default;

    // True on a row, false at the end.
    explicit operator bool() const noexcept { return row_.operator bool(); }
    const Ptr<Row>& ptr() const noexcept { return row_; }
    Row& operator*() const noexcept { return *row_; }
    Row* operator->() const noexcept { return row_.get(); }
    const Key& key() const { return row_->fwkKey(); }

    // Moves to the row with the smallest key greater than that of the present row; at the end,
    // stays there. The row need not be in the map any more.
    void advance() {
      if (!row_) return;
      auto next = map_->version_ == version_
                      ? rowOf<Row>(map_->finder_.next(map_->tree_, node()))
                      : map_->template rowAt<Row>(map_->tree_.upper_bound(row_->fwkKey()));
      version_ = map_->version_;
      row_ = std::move(next);
    }
    BasicIterator& operator++() {
      advance();
      return *this;
    }

   private:
    friend class RbTreeMap;
    BasicIterator(const RbTreeMap& map, Ptr<Row> row)
        : map_(&map), row_(std::move(row)), version_(map.version_) {}
    const Node& node() const { return static_cast<const Node&>(*row_); }

    const RbTreeMap* map_ = nullptr;
    Ptr<Row> row_;
    std::uint64_t version_ = 0;
  };

 public:
  using Iterator = BasicIterator<Value>;
  using IteratorConst = BasicIterator<Value const>;

  RbTreeMap() = default;
  RbTreeMap(const RbTreeMap&) = delete;
  RbTreeMap& operator=(const RbTreeMap&) = delete;
  ~RbTreeMap() { clear(); }

  std::size_t members() const noexcept { return tree_.size(); }
  bool empty() const noexcept { return tree_.empty(); }
  std::uint64_t version() const noexcept { return version_; }

  // The row under `key`, or null.
  Ptr<Value> operator[](const Key& key) const { return rowOf<Value>(findInTree(tree_, key)); }

  Iterator iterator() { return Iterator(*this, rowAt<Value>(tree_.begin())); }
  IteratorConst iteratorConst() const {
    return IteratorConst(*this, rowAt<Value const>(tree_.begin()));
  }
  // The row under `key`, else the one with the smallest greater key, else the end.
  Iterator startAt(const Key& key) { return Iterator(*this, rowAt<Value>(tree_.lower_bound(key))); }
  IteratorConst startAt(const Key& key) const {
    return IteratorConst(*this, rowAt<Value const>(tree_.lower_bound(key)));
  }
  // At the row under `key`, else at the end. Quick when rows are asked for in their order, or the
  // map has not changed for a while.
  IteratorConst find(const Key& key) const {
    return IteratorConst(*this, rowOf<Value const>(finder_.find(tree_, key)));
  }

  // Stores `row`, which is in no other map, under its own key, in the place of a row that has the
  // same key.
  void rowIs(const Ptr<Value>& row) {
    typename Tree::insert_commit_data commitData;
    const auto [place, absent] = tree_.insert_check(row->fwkKey(), commitData);
    if (!absent && &*place == &node(*row)) return;
    QEL_ASSERT(!node(*row).RbTreeMapLinks::is_linked());
    if (!absent) {
      Node& replaced = *place;
      tree_.replace_node(place, node(*row));
      row->referenceNew();
      changed();
      static_cast<Value&>(replaced).referenceDel();
      return;
    }
    tree_.insert_commit(node(*row), commitData);
    row->referenceNew();
    changed();
  }

  // Removes and returns the row under `key`, or null.
  Ptr<Value> rowDel(const Key& key) { return take(tree_.find(key)); }
  // Removes and returns the row at `it`, or null when `it` is at the end or its row has left the
  // map. The iterator keeps the row and its place.
  Ptr<Value> rowDel(const Iterator& it) {
    if (!it) return nullptr;
    const auto found = tree_.find(it.key());
    if (found == tree_.end() || &*found != &it.node()) return nullptr;
    return take(found);
  }
  // Removes the rows in the order of their keys; whoever hears of the end of one sees an empty map.
  void clear() {
    while (!tree_.empty()) {
      Tree leaving;
      leaving.swap(tree_);
      changed();
      while (Node* node = leaving.unlink_leftmost_without_rebalance()) {
        static_cast<Value&>(*node).referenceDel();
      }
    }
  }

 private:
  static Node& node(Value& row) { return static_cast<Node&>(row); }

  template <class Row>
  static Ptr<Row> rowOf(const Node* node) {
    // The tree links nodes of a const map as const; what it holds is shared, not owned.
    return Ptr<Row>(static_cast<Value*>(const_cast<Node*>(node)));
  }
  template <class Row, class Place>
  Ptr<Row> rowAt(Place place) const {
    return rowOf<Row>(place == tree_.end() ? nullptr : &*place);
  }

  Ptr<Value> take(typename Tree::iterator place) {
    if (place == tree_.end()) return nullptr;
    Value& row = static_cast<Value&>(*place);
    tree_.erase(place);
    changed();
    return Ptr<Value>::adopt(&row);  // the map's own reference
  }

  void changed() {
    ++version_;
    finder_.forget();
  }

  Tree tree_;
  mutable TreeFinder<Tree> finder_;
  std::uint64_t version_ = 0;
};

}  // namespace Qel
