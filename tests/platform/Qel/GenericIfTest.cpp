#include "Qel/GenericIf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Qel/Exception.h"
#include "Qel/Strep.h"
#include "Qel/TypeNode.h"
#include "support/LiveObjects.h"

namespace {

using Qel::GenericArgs;
using Qel::GenericIf;
using Qel::GenericValue;
using Qel::make;
using Qel::Ptr;
using testing::ElementsAre;

const Qel::TypeNode* lampType = nullptr;

// A registered type with an attribute of each kind of access, and one operation.
class Lamp : public Qel::PtrInterface {
 public:
  const Qel::TypeNode* fwkType() const override { return lampType; }
  U32 brightness = 7;
  bool present = true;
};

Qel::TypeDescription lampDescription() {
  Qel::TypeDescription description{.name = "Test::Lamp"};
  description.attributes = {
      {.name = "brightness",
       .read =
           [](const Qel::PtrInterface& o) {
             return GenericValue(dynamic_cast<const Lamp&>(o).brightness);
           },
       .set =
           [](Qel::PtrInterface& o, const GenericArgs& args) {
             return GenericValue(dynamic_cast<Lamp&>(o).brightness = args.at(0).toU32());
           },
       .del =
           [](Qel::PtrInterface& o) {
             return GenericValue(dynamic_cast<Lamp&>(o).present = false);
           }},
      {.name = "maker", .read = [](const Qel::PtrInterface&) { return GenericValue("nobody"); }},
      {.name = "secret", .read = {}}};
  description.operations = {
      {.name = "flash",
       .call = [](Qel::PtrInterface&,
                  const GenericArgs& args) { return GenericValue(static_cast<U32>(args.size())); }},
      {.name = "unwritten", .call = {}}};
  return description;
}

class GenericIfTest : public support::LiveObjectsTest {
 protected:
  void SetUp() override { lampType = &registration_->node(); }

  template <class Access>
  std::string refusal(Access access) {
    try {
      access();
    } catch (const Qel::OperationNotSupportedException& error) {
      return error.what();
    }
    return "no refusal";
  }

  const std::unique_ptr<Qel::TypeRegistration> registration_ = Qel::typeNodeIs(lampDescription());
  const std::unique_ptr<Qel::TypeRegistration> other_ = Qel::typeNodeIs({.name = "Test::Other"});
  const Ptr<Lamp> lamp_ = make<Lamp>();
};

TEST_F(GenericIfTest, ShowsTypeTextAndAttributesInTheirOrder) {
  const Ptr<GenericIf> lamp = genericIf(lamp_);
  EXPECT_EQ(&lamp->type(), lampType);
  EXPECT_EQ(lamp->strep(), Qel::valueToStrepOfRawPtr(lamp_.get(), "Test::Lamp"));
  EXPECT_THAT(lamp->attributeNames(), ElementsAre("brightness", "maker", "secret"));
}

TEST_F(GenericIfTest, ReadsSetsDeletesAndCallsWhatTheTypeOffers) {
  const Ptr<GenericIf> lamp = genericIf(lamp_);
  EXPECT_EQ(lamp->attribute("brightness").toU32(), 7U);
  EXPECT_EQ(lamp->attributeIs("brightness", {U32{9}}).toU32(), 9U);
  EXPECT_EQ(lamp_->brightness, 9U);
  EXPECT_FALSE(lamp->attributeDel("brightness").toBool());
  EXPECT_FALSE(lamp_->present);
  EXPECT_EQ(lamp->operation("flash", {true, "twice"}).toU32(), 2U);
}

TEST_F(GenericIfTest, RefusesAccessThatAnAttributeDoesNotOffer) {
  const Ptr<GenericIf> lamp = genericIf(lamp_);
  EXPECT_EQ(refusal([&] { lamp->attributeIs("maker", {"me"}); }),
            "type Test::Lamp does not support to set maker");
  EXPECT_EQ(refusal([&] { lamp->attributeDel("maker"); }),
            "type Test::Lamp does not support to delete maker");
  EXPECT_EQ(refusal([&] { lamp->attribute("secret"); }),
            "type Test::Lamp does not support to read secret");
  EXPECT_EQ(refusal([&] { lamp->operation("unwritten", {}); }),
            "type Test::Lamp does not support to call unwritten");
}

TEST_F(GenericIfTest, RefusesNamesThatTheTypeDoesNotHave) {
  const Ptr<GenericIf> lamp = genericIf(lamp_);
  EXPECT_EQ(refusal([&] { lamp->attribute("colour"); }),
            "type Test::Lamp does not support to read colour");
  EXPECT_EQ(refusal([&] { lamp->attributeIs("colour", {}); }),
            "type Test::Lamp does not support to set colour");
  EXPECT_EQ(refusal([&] { lamp->attributeDel("colour"); }),
            "type Test::Lamp does not support to delete colour");
  EXPECT_EQ(refusal([&] { lamp->operation("explode", {}); }),
            "type Test::Lamp does not support to call explode");
}

TEST_F(GenericIfTest, AnArgumentOfAnotherTypeChangesNothing) {
  const Ptr<GenericIf> lamp = genericIf(lamp_);
  EXPECT_THROW(lamp->attributeIs("brightness", {"bright"}), Qel::TypeException);
  EXPECT_EQ(lamp_->brightness, 7U);
}

TEST_F(GenericIfTest, ObjectsAreEqualByIdentity) {
  EXPECT_TRUE(genericIf(lamp_)->isEqual(*genericIf(lamp_)));
  EXPECT_FALSE(genericIf(lamp_)->isEqual(*genericIf(make<Lamp>())));
}

TEST_F(GenericIfTest, ObjectsHaveNeitherOrderNorZeroNorHash) {
  const Ptr<GenericIf> lamp = genericIf(lamp_);
  EXPECT_THROW(lamp->isLess(*lamp), Qel::OperationNotSupportedException);
  EXPECT_THROW(lamp->isZero(), Qel::OperationNotSupportedException);
  EXPECT_THROW(lamp->hash(), Qel::UnhashableException);
  try {
    lamp->hash();
  } catch (const Qel::UnhashableException& error) {
    EXPECT_STREQ(error.what(), "type Test::Lamp is not hashable");
  }
}

TEST_F(GenericIfTest, GivesItsPointerAsItsOwnTypeAlone) {
  EXPECT_EQ(genericIf(lamp_)->pointer(*lampType), lamp_.get());
  try {
    genericIf(lamp_)->pointer(other_->node());
    FAIL() << "a lamp is no other thing";
  } catch (const Qel::TypeException& error) {
    EXPECT_STREQ(error.what(), "expected type Test::Other but found Test::Lamp");
  }
}

TEST_F(GenericIfTest, KeepsItsObjectAlive) {
  Ptr<GenericIf> lamp = genericIf(lamp_);
  EXPECT_EQ(lamp_->references(), 2U);
  lamp = nullptr;
  EXPECT_EQ(lamp_->references(), 1U);
}

TEST_F(GenericIfTest, ThereIsNoneOfNullOrOfAnUnregisteredType) {
  class Plain : public Qel::PtrInterface {};
  const Qel::RangeExceptionExpectation expected;
  EXPECT_THROW(Qel::genericIf(nullptr), Qel::RangeException);
  EXPECT_THROW(Qel::genericIf(make<Plain>()), Qel::TypeException);
}

}  // namespace
