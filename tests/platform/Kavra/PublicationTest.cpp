#include "Kavra/Publication.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Documents.h"
#include "Qel/Exception.h"
#include "support/LiveObjects.h"

namespace Kavra {
namespace {

using kavratest::history;
using testing::AllOf;
using testing::HasSubstr;

using PublicationTest = support::LiveObjectsTest;

TEST_F(PublicationTest, OfAGoodDocumentChangesEntitiesOfItsType) {
  const Publication publication(kavratest::kHistoryPath, history({"Power loss"}));
  EXPECT_TRUE(publication.fits());
  EXPECT_EQ(publication.type, kavratest::kHistoryType);
  const auto entity = codecOf(publication.type).newEntity("history");
  publication.change(*entity);
  EXPECT_EQ(kavratest::reloadsOf(entity), (kavratest::Reloads{{0, {"Power loss"}}}));
}

TEST_F(PublicationTest, NamesThePlaceThatDoesNotFit) {
  const Publication publication(kavratest::kHistoryPath, kavratest::misfitHistory());
  EXPECT_FALSE(publication.fits());
  EXPECT_EQ(publication.type, kavratest::kHistoryType);
  EXPECT_EQ(publication.misfit, kavratest::kMisfitProblem);
}

TEST_F(PublicationTest, NamesTheKnownTypesWhereOneIsUnknown) {
  const Publication publication("a", Qel::Document::Map{{"type", "Nonsense"}});
  EXPECT_EQ(publication.type, "Nonsense");
  EXPECT_THAT(publication.misfit.stdString(),
              AllOf(HasSubstr("/type: unknown type 'Nonsense'"), HasSubstr(kavratest::kHistoryType),
                    HasSubstr(kavratest::kRedundancyType)));
}

TEST_F(PublicationTest, DoesNotFitWithoutAType) {
  EXPECT_EQ(Publication("a", Qel::Document::Map{}).misfit, "/: member 'type' is missing");
  EXPECT_EQ(Publication("a", Qel::Document(5.0)).misfit, "/: expected a map but found a number");
  EXPECT_EQ(Publication("a", Qel::Document::Map{{"type", true}}).misfit,
            "/type: expected a text but found a bool");
}

TEST_F(PublicationTest, DoesNotFitUnderWhatIsNoPath) {
  EXPECT_EQ(Publication("/a", history({"x"})).misfit, "/: this is not a path");
}

TEST_F(PublicationTest, HasACodecOnlyForTypesOfDocuments) {
  EXPECT_NO_THROW(codecOf(kavratest::kRedundancyType));
  // Registered, but nothing that a document could be.
  EXPECT_THROW(codecOf("System::ResetInstance"), Qel::RangeException);
  EXPECT_THROW(codecOf("Nonsense"), Qel::RangeException);
}

}  // namespace
}  // namespace Kavra
