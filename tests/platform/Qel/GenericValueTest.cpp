#include "Qel/GenericValue.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>

#include "Qel/Entity.h"
#include "Qel/Exception.h"
#include "Qel/GenericIf.h"
#include "Qel/TypeNode.h"
#include "support/LiveObjects.h"

namespace {

using Qel::GenericIf;
using Qel::GenericValue;
using Qel::make;
using Qel::Ptr;

class Plain : public Qel::PtrInterface {};

// An object whose type the test chooses.
class Typed : public Qel::PtrInterface {
 public:
  explicit Typed(const Qel::TypeNode& type) : type_(type) {}
  const Qel::TypeNode* fwkType() const override { return &type_; }

 private:
  const Qel::TypeNode& type_;
};

// A wrapped value, as modules derive them.
class ValueIf : public Qel::GenericIfImpl {
 public:
  using GenericIfImpl::GenericIfImpl;
  Qel::String strep() const override { return "value"; }
  GenericValue attribute(const Qel::String& name) const override {
    throwNotSupported(type().name(), name, "read");
  }
  const void* pointer(const Qel::TypeNode& wanted) const override {
    needType(wanted);
    return this;
  }
};

class GenericValueTest : public support::LiveObjectsTest {
 protected:
  template <class Unwrap>
  std::string refusal(Unwrap unwrap) {
    try {
      unwrap();
    } catch (const Qel::TypeException& error) {
      return error.what();
    }
    return "no refusal";
  }

  const std::unique_ptr<Qel::TypeRegistration> registration_ =
      Qel::typeNodeIs({.name = "Test::Typed"});
  const Ptr<Typed> object_{make<Typed>(registration_->node())};
};

TEST_F(GenericValueTest, IsNothingAtFirst) {
  const GenericValue nothing;
  EXPECT_TRUE(nothing.isNothing());
  EXPECT_EQ(nothing.kind(), "nothing");
  EXPECT_EQ(nothing.toPtr<Typed>(), nullptr);
}

TEST_F(GenericValueTest, GivesBackWhatItHolds) {
  EXPECT_TRUE(GenericValue(true).toBool());
  EXPECT_EQ(GenericValue(U32{4294967295}).toU32(), 4294967295U);
  EXPECT_EQ(GenericValue(1.5).toDouble(), 1.5);
  EXPECT_EQ(GenericValue("text").toString(), "text");
  EXPECT_EQ(GenericValue(Qel::Name("name")).toName(), Qel::Name("name"));
  EXPECT_EQ(GenericValue(object_).toPtr<Typed>(), object_);
}

TEST_F(GenericValueTest, RefusesEveryOtherType) {
  const GenericValue number(U32{1});
  EXPECT_EQ(refusal([&] { number.toBool(); }), "expected a bool but found an unsigned number");
  EXPECT_EQ(refusal([&] { number.toDouble(); }), "expected a number but found an unsigned number");
  EXPECT_EQ(refusal([&] { number.toString(); }), "expected a text but found an unsigned number");
  EXPECT_EQ(refusal([&] { number.toName(); }), "expected a text but found an unsigned number");
  EXPECT_EQ(refusal([&] { number.toGenericIf(); }),
            "expected a wrapped value but found an unsigned number");
  EXPECT_EQ(refusal([&] { number.toPtr<Typed>(); }),
            "expected a reference to an object of another type but found an unsigned number");
  EXPECT_EQ(refusal([] { GenericValue(true).toU32(); }),
            "expected an unsigned number but found a bool");
  EXPECT_EQ(refusal([] { GenericValue().toU32(); }),
            "expected an unsigned number but found nothing");
  EXPECT_EQ(refusal([] { GenericValue(0.5).toU32(); }),
            "expected an unsigned number but found a number");
  EXPECT_EQ(refusal([] { GenericValue("1").toU32(); }),
            "expected an unsigned number but found a text");
}

TEST_F(GenericValueTest, NamesTheTypeOfTheObjectThatItRefuses) {
  EXPECT_EQ(GenericValue(object_).kind(), "Test::Typed");
  EXPECT_EQ(GenericValue(Ptr<Typed const>(object_)).kind(), "constant Test::Typed");
  EXPECT_EQ(GenericValue(make<Plain>()).kind(), "an object of an unregistered type");
  EXPECT_EQ(GenericValue(Ptr<Typed>()).kind(), "a null reference");
  EXPECT_EQ(GenericValue(make<ValueIf>(registration_->node())).kind(), "Test::Typed");
  EXPECT_EQ(GenericValue(Ptr<GenericIf>()).kind(), "a null reference");
}

TEST_F(GenericValueTest, ReferencesUnwrapToBasesButNotToOtherTypes) {
  const GenericValue value(object_);
  EXPECT_EQ(value.toPtr<Qel::PtrInterface>(), object_);
  EXPECT_THROW(value.toPtr<Plain>(), Qel::TypeException);
}

TEST_F(GenericValueTest, ConstantReferencesStayConstant) {
  const GenericValue constant{Ptr<Typed const>(object_)};
  EXPECT_EQ(constant.toPtr<Typed const>(), object_);
  EXPECT_THROW(constant.toPtr<Typed>(), Qel::TypeException);
  EXPECT_EQ(GenericValue(object_).toPtr<Typed const>(), object_);
}

TEST_F(GenericValueTest, NullReferencesUnwrapToNull) {
  EXPECT_EQ(GenericValue(Ptr<Typed>()).toPtr<Plain>(), nullptr);
  EXPECT_EQ(GenericValue(Ptr<Typed const>()).toPtr<Plain const>(), nullptr);
}

TEST_F(GenericValueTest, AWrapperOfAnyModuleIsAWrappedValue) {
  const Ptr<ValueIf> wrapper = make<ValueIf>(registration_->node());
  const GenericValue value(wrapper);
  EXPECT_EQ(value.toGenericIf(), wrapper);
}

TEST_F(GenericValueTest, ARawPointerIsNotTakenForABool) {
  EXPECT_TRUE((std::is_constructible_v<GenericValue, const char*>));
  EXPECT_FALSE((std::is_constructible_v<GenericValue, Typed*>));
  EXPECT_FALSE((std::is_constructible_v<GenericValue, const void*>));
}

}  // namespace
