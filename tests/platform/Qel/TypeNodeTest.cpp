#include "Qel/TypeNode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Qel/Dir.h"
#include "Qel/Exception.h"
#include "support/LiveObjects.h"

namespace {

using Qel::GenericArgs;
using Qel::make;
using Qel::Name;
using Qel::Ptr;
using Qel::typeNode;
using Qel::TypeNode;
using Qel::typeNodeIs;

class TypeNodeTest : public support::LiveObjectsTest {};

TEST_F(TypeNodeTest, ATypeIsFoundByNameWhileItIsRegistered) {
  EXPECT_EQ(typeNode("Test::Type"), nullptr);
  auto registration = typeNodeIs({.name = "Test::Type"});
  EXPECT_EQ(typeNode("Test::Type"), &registration->node());
  EXPECT_EQ(typeNode("Test::Typ"), nullptr);
  EXPECT_EQ(typeNode("Test::Type")->name(), "Test::Type");
  registration.reset();
  EXPECT_EQ(typeNode("Test::Type"), nullptr);
}

TEST_F(TypeNodeTest, TypesAreListedInTheOrderOfRegistration) {
  const std::size_t before = Qel::typeNodes().size();
  const auto b = typeNodeIs({.name = "Test::B"});
  const auto a = typeNodeIs({.name = "Test::A"});
  const std::vector<const TypeNode*> nodes = Qel::typeNodes();
  ASSERT_EQ(nodes.size(), before + 2);
  EXPECT_EQ(nodes[before], &b->node());
  EXPECT_EQ(nodes[before + 1], &a->node());
}

TEST_F(TypeNodeTest, ANameIsGivenOnce) {
  const auto first = typeNodeIs({.name = "Test::Type"});
  EXPECT_THROW(static_cast<void>(typeNodeIs({.name = "Test::Type"})), Qel::NameInUseException);
  EXPECT_EQ(typeNode("Test::Type"), &first->node());
}

TEST_F(TypeNodeTest, KnowsItsAttributesAndOperationsByName) {
  Qel::TypeDescription description{.name = "Test::Type"};
  description.attributes = {{.name = "one", .read = {}}, {.name = "two", .read = {}}};
  description.operations = {{.name = "act", .call = {}}};
  const TypeNode node(description);
  EXPECT_EQ(node.attribute("two"), &node.attributes()[1]);
  EXPECT_EQ(node.attribute("act"), nullptr);
  EXPECT_EQ(node.operation("act")->name, "act");
  EXPECT_EQ(node.operation("one"), nullptr);
}

TEST_F(TypeNodeTest, DoesWhatItWasToldHowToDo) {
  class Thing : public Qel::PtrInterface {};
  auto thing = make<Thing>();
  const auto dir = make<Qel::Dir>("dir");
  Qel::TypeDescription description{.name = "Test::Type"};
  description.factory = [&](const GenericArgs& args) {
    EXPECT_EQ(args.at(0).toU32(), 3U);
    return thing;
  };
  description.newEntityForDir = [&](Qel::Dir& parent, const Name& name) {
    EXPECT_EQ(&parent, dir.get());
    return make<Qel::Entity>(name);
  };
  description.genericNotifiee = [&](const Ptr<Qel::PtrInterface const>& notifier, auto notify) {
    EXPECT_EQ(notifier, thing);
    notify("attribute", U32{1});
    return make<Qel::PtrInterface::NotifieeConst>();
  };
  const TypeNode node(description);
  EXPECT_EQ(node.newObject({U32{3}}), thing);
  EXPECT_EQ(node.newEntityForDir(*dir, "child")->name(), Name("child"));
  std::string told;
  EXPECT_NE(node.genericNotifiee(thing,
                                 [&](const Qel::String& attribute, const Qel::GenericValue& key) {
                                   told = attribute.stdString() + std::to_string(key.toU32());
                                 }),
            nullptr);
  EXPECT_EQ(told, "attribute1");
}

TEST_F(TypeNodeTest, ReadsAValueFromItsText) {
  Qel::TypeDescription description{.name = "Test::Type"};
  description.valueOfStrep = [](const Qel::String& text) {
    EXPECT_EQ(text, "text");
    return Ptr<Qel::GenericIf>();
  };
  EXPECT_EQ(TypeNode(description).valueOfStrep("text"), nullptr);
}

TEST_F(TypeNodeTest, RefusesWhatItWasNotToldHowToDo) {
  const TypeNode node({.name = "Test::Bare"});
  const auto dir = make<Qel::Dir>("dir");
  using Refused = Qel::OperationNotSupportedException;
  EXPECT_THROW(node.newObject({}), Refused);
  EXPECT_THROW(node.newEntityForDir(*dir, "x"), Refused);
  EXPECT_THROW(node.genericNotifiee(dir, {}), Refused);
  EXPECT_THROW(node.valueOfStrep("x"), Refused);
  EXPECT_EQ(node.documentCodec(), nullptr);
}

}  // namespace
