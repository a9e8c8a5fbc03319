#include "MiscSnmp/ReloadCauseKeyIf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Qel/Exception.h"
#include "Qel/TypeNode.h"
#include "support/LiveObjects.h"

namespace MiscSnmp {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

constexpr char kType[] = "MiscSnmp::ReloadCauseKey";

class ReloadCauseKeyIfTest : public support::LiveObjectsTest {
 protected:
  static const Qel::TypeNode& type() { return *Qel::typeNode(kType); }
  static Qel::Ptr<Qel::GenericIf> wrapped(U32 unit, U32 instance, U32 cause) {
    return Qel::make<ReloadCauseKeyIf>(ReloadCauseKey(unit, instance, cause));
  }
};

TEST_F(ReloadCauseKeyIfTest, IsOfTheRegisteredType) {
  ASSERT_NE(Qel::typeNode(kType), nullptr);
  EXPECT_EQ(&wrapped(1, 2, 3)->type(), Qel::typeNode(kType));
}

TEST_F(ReloadCauseKeyIfTest, ShowsItsTextForm) {
  EXPECT_EQ(wrapped(1, 2, 3)->strep(), valueToStrep(ReloadCauseKey(1, 2, 3)));
}

TEST_F(ReloadCauseKeyIfTest, TextGivesBackTheKey) {
  const auto value = type().valueOfStrep(valueToStrep(ReloadCauseKey(1, 2, 3)));
  EXPECT_EQ(ReloadCauseKeyIf::keyOf(value), ReloadCauseKey(1, 2, 3));
}

TEST_F(ReloadCauseKeyIfTest, TextWithOneMoreCharacterIsRejected) {
  const auto text = valueToStrep(ReloadCauseKey(1, 2, 3)) + Qel::String("x");
  EXPECT_THROW(type().valueOfStrep(text), Qel::ParseException);
}

TEST_F(ReloadCauseKeyIfTest, OffersTheThreeFields) {
  const auto value = wrapped(1, 2, 3);
  EXPECT_THAT(value->attributeNames(), ElementsAre("unitIndex", "instanceIndex", "causeIndex"));
  EXPECT_EQ(value->attribute("unitIndex").toU32(), 1U);
  EXPECT_EQ(value->attribute("instanceIndex").toU32(), 2U);
  EXPECT_EQ(value->attribute("causeIndex").toU32(), 3U);
}

TEST_F(ReloadCauseKeyIfTest, RefusesToWriteAnyField) {
  const auto value = wrapped(1, 2, 3);
  for (const Qel::String& name : value->attributeNames()) {
    EXPECT_THROW(value->attributeIs(name, {U32{9}}), Qel::OperationNotSupportedException) << name;
    EXPECT_THROW(value->attributeDel(name), Qel::OperationNotSupportedException) << name;
  }
  EXPECT_EQ(ReloadCauseKeyIf::keyOf(value), ReloadCauseKey(1, 2, 3));
}

TEST_F(ReloadCauseKeyIfTest, RefusesFieldsThatItDoesNotHave) {
  EXPECT_THROW(wrapped(1, 2, 3)->attribute("reloadIndex"), Qel::OperationNotSupportedException);
}

TEST_F(ReloadCauseKeyIfTest, ComparesWithOtherKeys) {
  const auto a = wrapped(1, 2, 3);
  const auto b = wrapped(1, 2, 4);
  EXPECT_TRUE(a->isEqual(*wrapped(1, 2, 3)));
  EXPECT_FALSE(a->isEqual(*b));
  EXPECT_TRUE(a->isLess(*b));
  EXPECT_FALSE(b->isLess(*a));
  EXPECT_FALSE(a->isLess(*a));
}

TEST_F(ReloadCauseKeyIfTest, IsZeroWhenAllFieldsAre) {
  EXPECT_TRUE(wrapped(0, 0, 0)->isZero());
  EXPECT_FALSE(wrapped(1, 0, 0)->isZero());
  EXPECT_FALSE(wrapped(0, 1, 0)->isZero());
  EXPECT_FALSE(wrapped(0, 0, 1)->isZero());
}

TEST_F(ReloadCauseKeyIfTest, RefusesToBeHashedAndNamesItsType) {
  const auto value = wrapped(1, 2, 3);
  EXPECT_THAT([&] { value->hash(); }, ThrowsMessage<Qel::UnhashableException>(HasSubstr(kType)));
}

TEST_F(ReloadCauseKeyIfTest, GivesAPointerToItsOwnTypeAlone) {
  const auto value = wrapped(1, 2, 3);
  EXPECT_EQ(*static_cast<const ReloadCauseKey*>(value->pointer(type())), ReloadCauseKey(1, 2, 3));
  const auto* other = Qel::typeNode("System::ResetInstance");
  ASSERT_NE(other, nullptr);
  EXPECT_THROW(value->pointer(*other), Qel::TypeException);
}

TEST_F(ReloadCauseKeyIfTest, FindsNoKeyInOtherValues) {
  EXPECT_THROW(ReloadCauseKeyIf::keyOf(U32{1}), Qel::TypeException);
  EXPECT_THROW(ReloadCauseKeyIf::keyOf(Qel::GenericValue()), Qel::TypeException);
}

}  // namespace
}  // namespace MiscSnmp
