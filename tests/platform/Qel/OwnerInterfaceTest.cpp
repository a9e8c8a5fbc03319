#include "Qel/OwnerInterface.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "Qel/Ptr.h"
#include "support/LiveObjects.h"

namespace {

using Qel::make;
using Qel::Ptr;
using testing::ElementsAre;
using testing::IsEmpty;

using Log = std::vector<std::string>;

class Owner;

// Holds a counted reference to its owner for life.
class Child : public Qel::PtrInterface {
 public:
  Child(std::string name, const Ptr<Owner>& owner, Log& log);
  ~Child() override { log_.push_back("end of " + name_); }
  Qel::OwnerInterface* qelOwner() const override;
  Ptr<Owner> owner() const { return owner_; }

 private:
  const std::string name_;
  const Ptr<Owner> owner_;
  Log& log_;
};

class Owner : public Qel::OwnerInterface {
 public:
  // Makes its children while it is under construction, and fails after them when told to.
  Owner(Log& log, const std::vector<std::string>& names, bool fails = false) : log_(log) {
    for (const std::string& name : names) childIs(name);
    if (fails) throw std::runtime_error("no owner");
  }
  ~Owner() override {
    log_.push_back("end of owner");
    while (!children_.empty()) childDel();
  }

  Ptr<Child> childIs(const std::string& name) {
    auto child = make<Child>(name, Ptr<Owner>(this), log_);
    children_.push_back(child);
    qelChildIs(*child);
    return child;
  }
  // Drops the oldest child.
  Ptr<Child> childDel() {
    Ptr<Child> child = children_.front();
    qelChildDel(*child);
    children_.erase(children_.begin());
    return child;
  }
  Ptr<Child> child(std::size_t index) const { return children_.at(index); }

 private:
  Log& log_;
  std::vector<Ptr<Child>> children_;
};

Child::Child(std::string name, const Ptr<Owner>& owner, Log& log)
    : name_(std::move(name)), owner_(owner), log_(log) {}

Qel::OwnerInterface* Child::qelOwner() const { return owner_.get(); }

class OwnerInterfaceTest : public support::LiveObjectsTest {
 protected:
  Ptr<Owner> owner(const std::vector<std::string>& names = {}) { return make<Owner>(log_, names); }

  Log log_;
};

TEST_F(OwnerInterfaceTest, GoesWhenOnlyItsChildrenHoldIt) {
  Ptr<Owner> held = owner();
  held->childIs("a");
  held->childIs("b");
  EXPECT_EQ(held->references(), 3U);
  held = nullptr;
  EXPECT_THAT(log_, ElementsAre("end of owner", "end of a", "end of b"));
  EXPECT_EQ(newObjects(), 0);
}

TEST_F(OwnerInterfaceTest, GoesLikeAnyObjectWithoutChildren) {
  owner();
  EXPECT_THAT(log_, ElementsAre("end of owner"));
}

TEST_F(OwnerInterfaceTest, ChildrenMadeDuringConstructionCountAsOthersDo) {
  Ptr<Owner> held = owner({"a", "b"});
  EXPECT_THAT(log_, IsEmpty());
  held = nullptr;
  EXPECT_THAT(log_, ElementsAre("end of owner", "end of a", "end of b"));
}

TEST_F(OwnerInterfaceTest, AFailedConstructionUnwindsOnceWithItsChildren) {
  EXPECT_THROW(make<Owner>(log_, std::vector<std::string>{"a", "b"}, true), std::runtime_error);
  EXPECT_THAT(log_, ElementsAre("end of a", "end of b"));
  EXPECT_EQ(newObjects(), 0);
}

TEST_F(OwnerInterfaceTest, AnyReferenceFromOutsideKeepsIt) {
  Ptr<Owner> first = owner({"a"});
  Ptr<Owner> second = first;
  first = nullptr;
  EXPECT_THAT(log_, IsEmpty());
  second = nullptr;
  EXPECT_THAT(log_, ElementsAre("end of owner", "end of a"));
}

TEST_F(OwnerInterfaceTest, AChildHeldOutsideKeepsItsOwnerUntilItIsLetGo) {
  Ptr<Owner> held = owner({"a", "b"});
  Ptr<Child> child = held->child(1);
  held = nullptr;
  EXPECT_THAT(log_, IsEmpty());
  EXPECT_EQ(child->owner()->child(0)->references(), 2U) << "the family is whole";
  EXPECT_THAT(log_, IsEmpty());
  child = nullptr;
  EXPECT_THAT(log_, ElementsAre("end of owner", "end of a", "end of b"));
}

TEST_F(OwnerInterfaceTest, GoesWithTheLastOfSeveralReferencesToItsChildren) {
  Ptr<Owner> held = owner({"a", "b"});
  Ptr<Child> a = held->child(0);
  Ptr<Child> b = held->child(1);
  held = nullptr;
  a = nullptr;
  EXPECT_THAT(log_, IsEmpty());
  b = nullptr;
  EXPECT_THAT(log_, ElementsAre("end of owner", "end of a", "end of b"));
}

TEST_F(OwnerInterfaceTest, AChildThatIsDroppedLetsItsOwnerGoWithIt) {
  Ptr<Owner> held = owner({"a", "b"});
  Ptr<Child> dropped = held->childDel();
  held = nullptr;
  EXPECT_THAT(log_, IsEmpty()) << "what was dropped refers to its owner like anybody else";
  dropped = nullptr;
  EXPECT_THAT(log_, ElementsAre("end of a", "end of owner", "end of b"));
}

TEST_F(OwnerInterfaceTest, TheLastChildThatIsDroppedLeavesAnOrdinaryObject) {
  Ptr<Owner> held = owner({"a"});
  held->childDel();
  EXPECT_THAT(log_, ElementsAre("end of a"));
  EXPECT_EQ(held->references(), 1U);
  held->childIs("b");
  held = nullptr;
  EXPECT_THAT(log_, ElementsAre("end of a", "end of owner", "end of b"));
}

TEST_F(OwnerInterfaceTest, ReplacingItAThousandTimesLeavesOne) {
  Ptr<Owner> held;
  for (int i = 0; i < 1000; ++i) {
    held = owner({"a", "b", "c"});
    ASSERT_EQ(newObjects(), 4);
  }
  held = nullptr;
  EXPECT_EQ(newObjects(), 0);
}

// An object that names no owner.
class Stranger : public Qel::PtrInterface {};
class Careless : public Qel::OwnerInterface {
 public:
  explicit Careless(Qel::PtrInterface& child) { qelChildIs(child); }
};

TEST_F(OwnerInterfaceTest, AChildThatNamesAnotherOwnerEndsTheProcess) {
  const auto stranger = make<Stranger>();
  EXPECT_DEATH(make<Careless>(*stranger), "assertion failed: child.qelOwner\\(\\) == this");
}

// Lets a reference to one of its children out while it is ending.
class Leaking : public Owner {
 public:
  Leaking(Log& log, Ptr<Child>& leak) : Owner(log, {"a"}), leak_(leak) {}
  ~Leaking() override { leak_ = child(0); }

 private:
  Ptr<Child>& leak_;
};

TEST_F(OwnerInterfaceTest, AReferenceToADyingChildEndsTheProcess) {
  EXPECT_DEATH(
      {
        Ptr<Child> leak;
        make<Leaking>(log_, leak);
      },
      "assertion failed: references\\(\\) <= 1");
}

}  // namespace
