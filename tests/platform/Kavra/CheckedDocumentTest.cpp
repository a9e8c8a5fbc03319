#include "Kavra/CheckedDocument.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Qel/Exception.h"
#include "platform/Kavra/Documents.h"
#include "support/LiveObjects.h"
#include "support/RunStep.h"

namespace Kavra {
namespace {

using kavratest::history;
using testing::AllOf;
using testing::HasSubstr;

using CheckedDocumentTest = support::LiveObjectsTest;

TEST_F(CheckedDocumentTest, OfAGoodDocumentChangesEntitiesOfItsType) {
  const CheckedDocument checked(kavratest::kHistoryPath, history({"Power loss"}));
  EXPECT_TRUE(checked.fits());
  EXPECT_EQ(checked.type, kavratest::kHistoryType);
  const auto entity = codecOf(checked.type).newEntity("history");
  checked.change(*entity, support::runStep);
  EXPECT_EQ(kavratest::reloadsOf(entity), (kavratest::Reloads{{0, {"Power loss"}}}));
}

TEST_F(CheckedDocumentTest, NamesThePlaceThatDoesNotFit) {
  const CheckedDocument checked(kavratest::kHistoryPath, kavratest::misfitHistory());
  EXPECT_FALSE(checked.fits());
  EXPECT_EQ(checked.type, kavratest::kHistoryType);
  EXPECT_EQ(checked.misfit, kavratest::kMisfitProblem);
}

TEST_F(CheckedDocumentTest, NamesTheKnownTypesWhereOneIsUnknown) {
  const CheckedDocument checked("a", Qel::Document::Map{{"type", "Nonsense"}});
  EXPECT_EQ(checked.type, "Nonsense");
  EXPECT_THAT(checked.misfit.stdString(),
              AllOf(HasSubstr("/type: unknown type 'Nonsense'"), HasSubstr(kavratest::kHistoryType),
                    HasSubstr(kavratest::kRedundancyType)));
}

TEST_F(CheckedDocumentTest, DoesNotFitWithoutAType) {
  EXPECT_EQ(CheckedDocument("a", Qel::Document::Map{}).misfit, "/: member 'type' is missing");
  EXPECT_EQ(CheckedDocument("a", Qel::Document(5.0)).misfit,
            "/: expected a map but found a number");
  EXPECT_EQ(CheckedDocument("a", Qel::Document::Map{{"type", true}}).misfit,
            "/type: expected a text but found a bool");
}

TEST_F(CheckedDocumentTest, DoesNotFitUnderWhatIsNoPath) {
  EXPECT_EQ(CheckedDocument("/a", history({"x"})).misfit, "/: this is not a path");
}

TEST_F(CheckedDocumentTest, HasACodecOnlyForTypesOfDocuments) {
  EXPECT_NO_THROW(codecOf(kavratest::kRedundancyType));
  // Registered, but nothing that a document could be.
  EXPECT_THROW(codecOf("System::ResetInstance"), Qel::RangeException);
  EXPECT_THROW(codecOf("Nonsense"), Qel::RangeException);
}

}  // namespace
}  // namespace Kavra
