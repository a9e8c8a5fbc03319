#include "Qel/MakeValid.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

#include "support/LiveObjects.h"

namespace {

using testing::StrEq;
using testing::ThrowsMessage;

// An object for which there may be no memory.
class Item final : public Qel::PtrInterface {
 public:
  explicit Item(std::unique_ptr<int> value) : value_(std::move(value)) {}
  static void* operator new(std::size_t size, const std::nothrow_t& tag) noexcept {
    return memoryIsOut ? nullptr : ::operator new(size, tag);
  }
  static void operator delete(void* item) { ::operator delete(item); }
  int value() const { return *value_; }

  static inline bool memoryIsOut = false;

 private:
  const std::unique_ptr<int> value_;
};

class MakeValidTest : public support::LiveObjectsTest {
 protected:
  ~MakeValidTest() override { Item::memoryIsOut = false; }
};

TEST_F(MakeValidTest, HandsOutTheOneReferenceToANewObject) {
  const auto item = Qel::makeValid<Item>(std::make_unique<int>(7));
  EXPECT_EQ(item->value(), 7);
  EXPECT_EQ(item->references(), 1U);
}

TEST_F(MakeValidTest, RaisesARangeErrorWhenThereIsNoMemory) {
  Item::memoryIsOut = true;
  EXPECT_THAT([] { Qel::makeValid<Item>(std::make_unique<int>(7)); },
              ThrowsMessage<Qel::RangeException>(StrEq("null ValidPtr")));
  EXPECT_EQ(newObjects(), 0);
}

}  // namespace
