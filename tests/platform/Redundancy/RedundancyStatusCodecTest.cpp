#include "Redundancy/RedundancyStatusCodec.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>

#include "Redundancy/RedundancyStatus.h"
#include "support/LiveObjects.h"
#include "support/ProblemOf.h"
#include "support/RunStep.h"

namespace Redundancy {
namespace {

using Qel::Document;
using testing::ElementsAre;
using testing::Pair;

Document status(Document protocol, Document switchoverCapable) {
  return Document::Map{{"type", "Redundancy::RedundancyStatus"},
                       {"protocol", std::move(protocol)},
                       {"switchoverCapable", std::move(switchoverCapable)}};
}

std::string problemOf(const std::function<void()>& work) {
  return support::problemOf<Qel::DocumentException>(work);
}

class RedundancyStatusCodecTest : public support::LiveObjectsTest {
 protected:
  std::string problemOfDocument(const Document& document) const {
    std::string problem = problemOf([&] { codec_.decode(document); });
    EXPECT_EQ(problemOf([&] { codec_.fieldsOf(document); }), problem);
    return problem;
  }
  std::string problemOfFields(const Qel::DocumentCodec::Fields& fields) const {
    return problemOf([&] { codec_.documentOf(fields); });
  }

  const RedundancyStatusCodec codec_{};
};

TEST_F(RedundancyStatusCodecTest, MakesTheEntityEqualToTheDocument) {
  const auto entity = codec_.newEntity("status");
  codec_.decode(status(3U, true))(*entity, support::runStep);
  const auto found = Qel::ptrCast<RedundancyStatus>(entity);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->name(), Qel::Name("status"));
  EXPECT_EQ(found->protocol(), RedundancyProtocol::hotStandby);
  EXPECT_TRUE(found->switchoverCapable());
  codec_.decode(status(77U, false))(*entity, support::runStep);
  EXPECT_EQ(found->protocol(), RedundancyProtocol{77});
  EXPECT_FALSE(found->switchoverCapable());
}

TEST_F(RedundancyStatusCodecTest, RefusesWhatDoesNotFitWithItsPlace) {
  EXPECT_EQ(problemOfDocument("x"), "/: expected a map but found a text");
  EXPECT_EQ(problemOfDocument(Document::Map{{"switchoverCapable", true}}),
            "/: member 'protocol' is missing");
  EXPECT_EQ(problemOfDocument(Document::Map{{"protocol", 3U}}),
            "/: member 'switchoverCapable' is missing");
  EXPECT_EQ(problemOfDocument(Document::Map{{"protocol", 3U}, {"mode", 1U}}),
            "/: unknown member 'mode'");
  EXPECT_EQ(problemOfDocument(status("3", true)),
            "/protocol: expected an integer but found a text");
  EXPECT_EQ(problemOfDocument(status(3.0, true)),
            "/protocol: expected an integer but found a number");
  EXPECT_EQ(problemOfDocument(status(std::int64_t{-1}, true)),
            "/protocol: outside the range 0 to 4294967295");
  EXPECT_EQ(problemOfDocument(status(std::uint64_t{4294967296}, true)),
            "/protocol: outside the range 0 to 4294967295");
  EXPECT_EQ(problemOfDocument(status(3U, 1U)),
            "/switchoverCapable: expected a bool but found an integer");
}

TEST_F(RedundancyStatusCodecTest, WritesFlatFieldsAndReadsThemBack) {
  for (const auto& [protocol, capable] : {std::pair(0U, false), std::pair(4294967295U, true)}) {
    const Document document = status(protocol, capable);
    const auto fields = codec_.fieldsOf(document);
    EXPECT_THAT(fields, ElementsAre(Pair("protocol", std::to_string(protocol)),
                                    Pair("switchoverCapable", capable ? "true" : "false")));
    EXPECT_EQ(codec_.documentOf(fields), document);
  }
}

TEST_F(RedundancyStatusCodecTest, RefusesFieldsThatDoNotFitWithTheirName) {
  EXPECT_EQ(problemOfFields({}), "protocol: field is missing");
  EXPECT_EQ(problemOfFields({{"protocol", "3"}}), "switchoverCapable: field is missing");
  EXPECT_EQ(problemOfFields({{"protocol", "-3"}, {"switchoverCapable", "true"}}),
            "protocol: not an unsigned 32-bit number");
  EXPECT_EQ(problemOfFields({{"protocol", "3 "}, {"switchoverCapable", "true"}}),
            "protocol: not an unsigned 32-bit number");
  EXPECT_EQ(problemOfFields({{"protocol", "3"}, {"switchoverCapable", "yes"}}),
            "switchoverCapable: not true or false");
  EXPECT_EQ(problemOfFields({{"protocol", "3"}, {"switchoverCapable", "true"}, {"x", ""}}),
            "x: unknown field");
  EXPECT_EQ(problemOfFields({{"protocol", "3"}, {"protocol", "3"}}), "protocol: stands twice");
}

}  // namespace
}  // namespace Redundancy
