#include "System/HistoryEdit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "Kavra/Json/Text.h"
#include "Qel/Exception.h"
#include "platform/Kavra/Documents.h"

namespace System {
namespace {

using kavratest::historyOf;
using kavratest::Reloads;

std::string text(const Qel::Document& document) {
  return Kavra::Json::write(document, Kavra::Json::Form::line);
}

// The document helper of the tests gives every cause this time.
constexpr double kTime = 1700000000.5;

TEST(HistoryEditTest, BeginsAHistoryWithItsFirstReload) {
  EXPECT_EQ(text(withReload(nullptr, {{"a", kTime}, {"b", kTime}})),
            text(historyOf({{0, {"a", "b"}}})));
}

TEST(HistoryEditTest, MovesOlderReloadsUpByOne) {
  const Qel::Document present = historyOf({{0, {"a"}}, {1, {"b"}}, {5, {"c"}}});
  EXPECT_EQ(text(withReload(&present, {{"new", kTime}})),
            text(historyOf({{0, {"new"}}, {1, {"a"}}, {2, {"b"}}, {6, {"c"}}})));
}

TEST(HistoryEditTest, DropsTheEleventhReload) {
  Reloads reloads;
  for (U32 index = 0; index < 10; ++index) reloads[index] = {"cause " + std::to_string(index)};
  const Qel::Document present = historyOf(reloads);
  Reloads expected{{0, {"new"}}};
  for (U32 index = 0; index < 9; ++index) expected[index + 1] = reloads[index];
  EXPECT_EQ(text(withReload(&present, {{"new", kTime}})), text(historyOf(expected)));
}

TEST(HistoryEditTest, DropsWhateverIsOlder) {
  const Qel::Document present = historyOf({{9, {"a"}}, {10, {"b"}}, {4294967295, {"c"}}});
  EXPECT_EQ(text(withReload(&present, {})), text(historyOf({{0, {}}})));
}

TEST(HistoryEditTest, RecordsWhatIsRecommendedAndTheDetailWhereThereAreAny) {
  EXPECT_EQ(
      text(withReload(nullptr, {{"a", kTime, "wait", "more"}, {"b", kTime, "", "less"}})),
      R"({"type": "System::ResetCauseHistory", "rebootHistory": {"0": {"causeQ": [)"
      R"({"description": "a", "time": 1700000000.5, "recommendedAction": "wait", )"
      R"("detail": "more"}, {"description": "b", "time": 1700000000.5, "detail": "less"}]}}})");
}

TEST(HistoryEditTest, AddsACauseAtTheEndOfReloadZero) {
  const Qel::Document present = historyOf({{0, {"a"}}, {1, {"b"}}});
  EXPECT_EQ(text(withCause(&present, {"c", kTime})),
            text(historyOf({{0, {"a", "c"}}, {1, {"b"}}})));
}

TEST(HistoryEditTest, NeedsAReloadToAddACauseTo) {
  const Qel::Document present = historyOf({{1, {"b"}}});
  EXPECT_THROW(withCause(&present, {"c", kTime}), Qel::RangeException);
  EXPECT_THROW(withCause(nullptr, {"c", kTime}), Qel::RangeException);
}

}  // namespace
}  // namespace System
