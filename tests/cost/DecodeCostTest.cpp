// What reading a large document takes from the allocator, exactly: the loop stands still for some
// of it, and each object costs again when the document goes.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>

#include "Kavra/CheckedDocument.h"
#include "Kavra/Json/Text.h"
#include "Kavra/Redis/DocumentHash.h"
#include "Kavra/Redis/Reply.h"
#include "Kavra/Redis/Snapshot.h"
#include "Qel/Document.h"
#include "cost/Allocations.h"

namespace {

constexpr std::size_t kCausesRead = 10'000;
// A vector that grows to so many elements, and what there is once in a document.
constexpr std::size_t kBesideCauses = 100;

std::string documentTextOf(std::size_t causes) {
  std::string queue;
  for (std::size_t i = 0; i < causes; ++i) {
    queue += fmt::format(R"({}{{"description": "cause {:020}", "time": 1700000000.9}})",
                         i == 0 ? "" : ",", i);
  }
  return R"({"type": "System::ResetCauseHistory", "rebootHistory": {"0": {"causeQ": [)" + queue +
         "]}}}";
}

// The objects that `call` makes, whether or not it keeps them.
template <class Call>
std::size_t objectsMadeBy(const Call& call) {
  const std::size_t before = cost::allocations().made;
  call();
  return cost::allocations().made - before;
}

TEST(DecodeCostTest, ACauseIsReadAsItsMapAndItsText) {
  const std::string text = documentTextOf(kCausesRead);
  Qel::Document document;
  const std::size_t objects = objectsMadeBy([&] { document = Kavra::Json::read(text); });
  // The map grows to one member and to two; a text is one.
  EXPECT_NEAR(static_cast<double>(objects), 3.0 * kCausesRead, kBesideCauses);
}

TEST(DecodeCostTest, ADocumentThatFitsIsCheckedWithoutAnObjectForEachCause) {
  Qel::Document document = Kavra::Json::read(documentTextOf(kCausesRead));
  const std::size_t objects = objectsMadeBy([&] {
    const Kavra::CheckedDocument checked("cell/1/sys/reset/history", std::move(document));
    EXPECT_TRUE(checked.fits()) << checked.misfit;
  });
  EXPECT_LT(objects, kBesideCauses);
}

TEST(DecodeCostTest, AHashThatIsReadAgainAsItWasIsNotDecoded) {
  using Kavra::Redis::Reply;
  constexpr char kPath[] = "cell/1/sys/reset/history";
  Reply hash{Reply::Kind::array, 0, {}, {}};
  for (const auto& [name, value] :
       Kavra::Redis::fieldsOf(kPath, Kavra::Json::read(documentTextOf(kCausesRead)))) {
    hash.elements.push_back({Reply::Kind::text, 0, name, {}});
    hash.elements.push_back({Reply::Kind::text, 0, value, {}});
  }
  const Reply noLog{Reply::Kind::error, 0, "ERR no such key", {}};
  Reply outcome{Reply::Kind::array, 0, {}, {{Reply::Kind::text, 0, "epoch", {}}, noLog, hash}};
  const Kavra::Redis::SnapshotRequest request{{kPath}, false};
  Kavra::Redis::Snapshot::Octets known;
  known = Kavra::Redis::Snapshot(request, outcome, &known).octets;
  const std::size_t objects = objectsMadeBy([&] {
    const Kavra::Redis::Snapshot again(request, std::move(outcome), &known);
    EXPECT_TRUE(again.unchanged.contains(kPath));
  });
  EXPECT_LT(objects, kBesideCauses);
}

TEST(DecodeCostTest, TheCanonicalFormOfACauseIsItsMap) {
  const Qel::Document document = Kavra::Json::read(documentTextOf(kCausesRead));
  const std::size_t objects = objectsMadeBy([&] { (void)Kavra::canonicalFormOf(document); });
  EXPECT_NEAR(static_cast<double>(objects), 1.0 * kCausesRead, kBesideCauses);
}

}  // namespace
