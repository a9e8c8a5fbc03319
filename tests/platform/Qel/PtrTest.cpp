#include "Qel/Ptr.h"

#include <gtest/gtest.h>

#include <sstream>
#include <unordered_set>
#include <utility>

#include "support/LiveObjects.h"

namespace {

using Qel::make;
using Qel::Ptr;
using Qel::ptrCast;

class Base : public Qel::PtrInterface {};
class Derived : public Base {
 public:
  explicit Derived(int number = 0) : number_(number) {}
  int number() const { return number_; }

 private:
  const int number_;
};

class PtrTest : public support::LiveObjectsTest {};

TEST_F(PtrTest, IsNullUntilItRefersToSomething) {
  const Ptr<Base> none;
  EXPECT_FALSE(none);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(none.get(), nullptr);
  EXPECT_EQ(Ptr<Base>(nullptr), none);
}

TEST_F(PtrTest, MakesAnObjectFromItsConstructorArguments) {
  EXPECT_EQ(make<Derived>(7)->number(), 7);
}

TEST_F(PtrTest, AdoptsNullAsNull) { EXPECT_EQ(Ptr<Derived>::adopt(nullptr), nullptr); }

TEST_F(PtrTest, ACopyAddsAReferenceAndAMoveDoesNot) {
  Ptr<Derived> first = make<Derived>();
  const Ptr<Derived> copy = first;
  EXPECT_EQ(copy->references(), 2U);
  const Ptr<Derived> moved = std::move(first);
  EXPECT_EQ(moved->references(), 2U);
  // NOLINTNEXTLINE(bugprone-use-after-move): null is what a move leaves.
  EXPECT_EQ(first, nullptr);
}

TEST_F(PtrTest, AssignmentReleasesWhatStoodThere) {
  Ptr<Derived> first = make<Derived>(1);
  const Ptr<Derived> second = make<Derived>(2);
  first = second;
  EXPECT_EQ(newObjects(), 1);
  first = nullptr;
  EXPECT_EQ(second->references(), 1U);
}

TEST_F(PtrTest, AssignmentToItselfKeepsTheObject) {
  Ptr<Derived> object = make<Derived>(3);
  const Ptr<Derived>& same = object;
  object = same;
  EXPECT_EQ(object->number(), 3);
  EXPECT_EQ(object->references(), 1U);
}

// An object that looks, while it is being destroyed, at the reference that let it go.
class Looking : public Qel::PtrInterface {
 public:
  Looking(const Ptr<Looking>& slot, bool& slotWasNull) : slot_(slot), slotWasNull_(slotWasNull) {}
  ~Looking() override { slotWasNull_ = slot_ == nullptr; }

 private:
  const Ptr<Looking>& slot_;
  bool& slotWasNull_;
};

TEST_F(PtrTest, AReferenceHasItsNewValueBeforeTheOldObjectGoes) {
  bool slotWasNull = false;
  Ptr<Looking> slot;
  slot = make<Looking>(slot, slotWasNull);
  slot = nullptr;
  EXPECT_TRUE(slotWasNull);
}

TEST_F(PtrTest, ConvertsToBasesAndToConstant) {
  const Ptr<Derived> derived = make<Derived>();
  const Ptr<Base> base = derived;
  const Ptr<Base const> constant = base;
  EXPECT_EQ(constant, derived);
  EXPECT_EQ(derived->references(), 3U);
  EXPECT_FALSE((std::is_convertible_v<Ptr<Base>, Ptr<Derived>>));
  EXPECT_FALSE((std::is_convertible_v<Ptr<Base const>, Ptr<Base>>));
}

TEST_F(PtrTest, CastsDownOnlyToWhatTheObjectIs) {
  const Ptr<Base> derived = make<Derived>(5);
  EXPECT_EQ(ptrCast<Derived>(derived)->number(), 5);
  EXPECT_EQ(ptrCast<Derived>(make<Base>()), nullptr);
  EXPECT_EQ(ptrCast<Derived>(Ptr<Base>()), nullptr);
}

TEST_F(PtrTest, ComparesAndHashesByIdentity) {
  const Ptr<Derived> one = make<Derived>(1);
  const Ptr<Derived> twin = make<Derived>(1);
  EXPECT_NE(one, twin);
  EXPECT_EQ(one, Ptr<Base>(one));
  const std::unordered_set<Ptr<Derived>> set{one, twin, one};
  EXPECT_EQ(set.size(), 2U);
}

TEST_F(PtrTest, ShowsAnAddressOrNull) {
  const Ptr<Derived> object = make<Derived>();
  std::ostringstream shown;
  shown << object << ' ' << Ptr<Derived>();
  std::ostringstream wanted;
  wanted << static_cast<const void*>(object.get()) << " null";
  EXPECT_EQ(shown.str(), wanted.str());
}

}  // namespace
