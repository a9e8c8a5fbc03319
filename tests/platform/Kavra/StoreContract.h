#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <set>
#include <string>

#include "Kavra/Feed.h"
#include "Kavra/Store.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "Qel/String.h"

namespace kavratest {

// A database of a test's own, empty at first. Each store has one; all pass the same tests.
class Database {
 public:
  virtual ~Database() = default;
  virtual Qel::Ptr<Kavra::Store> store() = 0;
  virtual Qel::Ptr<Kavra::Feed> feed(Qel::EventLoop& loop) = 0;
  // Puts a history of one reload with one cause there, past every door.
  virtual void putUnchecked(const Qel::String& path, const Qel::Document& document) = 0;
};

// How to make one, and what the tests that use it are called.
struct DatabaseKind {
  std::string name;
  std::function<std::unique_ptr<Database>()> make;
};

// What a publisher of that file keeps at these places.
inline Kavra::Store::Publication publicationOf(const std::set<Qel::String>& places,
                                               const Kavra::Store::Documents& documents,
                                               const char* file = "/cell.json") {
  return {{"host", "boot", file, places}, documents, {}};
}

inline void PrintTo(const DatabaseKind& kind, std::ostream* out) { *out << kind.name; }

}  // namespace kavratest
