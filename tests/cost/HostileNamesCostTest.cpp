// What names cost that were chosen for it: whoever publishes a document names what is in it, and
// can compute as many names of one hash value as there is room for. Comparisons are counted.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "Kavra/Json/Members.h"
#include "Kavra/Json/Text.h"
#include "Qel/Document.h"
#include "Qel/FieldReader.h"
#include "cost/Comparisons.h"

namespace {

constexpr std::size_t kNames = 1024;
// Names that are sorted, or found in a tree, take some for each halving; a pair of names each takes
// kNames / 2 for each name.
constexpr std::size_t kMostForEachName = 40;

// The hash of the standard library takes in eight octets at a time, in steps that can all be
// undone.
class StandardHash {
 public:
  // The eight octets that take the hash of sixteen from where `first` takes it to `end`.
  static std::uint64_t second(std::uint64_t first, std::uint64_t end) {
    const std::uint64_t begin = kSeed ^ (16 * kFactor);
    return mixedBack(((begin ^ mixed(first)) * kFactor) ^ end);
  }

 private:
  static constexpr std::uint64_t kSeed = 0xc70f6907;
  static constexpr std::uint64_t kFactor = 0xc6a4a7935bd1e995;

  // Of an odd number, modulo 2^64: each round doubles the digits that are right.
  static constexpr std::uint64_t inverse(std::uint64_t odd) {
    std::uint64_t inverse = odd;
    for (int round = 0; round < 6; ++round) inverse *= 2 - odd * inverse;
    return inverse;
  }
  static std::uint64_t shifted(std::uint64_t value) { return value ^ (value >> 47); }
  static std::uint64_t mixed(std::uint64_t value) { return shifted(value * kFactor) * kFactor; }
  static std::uint64_t mixedBack(std::uint64_t value) {
    constexpr std::uint64_t kInverse = inverse(kFactor);
    return shifted(value * kInverse) * kInverse;
  }
};

bool isAscii(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// Names of one hash value, ASCII so that they may stand in JSON, too.
std::vector<std::string> hostileNames() {
  constexpr std::uint64_t kSevenBits = 0x7f7f7f7f7f7f7f7f;
  constexpr std::uint64_t kSomeEnd = 0x1234567890abcdef;
  std::mt19937_64 random;
  std::vector<std::string> names;
  while (names.size() < kNames) {
    const std::uint64_t first = random() & kSevenBits;
    const std::uint64_t halves[] = {first, StandardHash::second(first, kSomeEnd)};
    std::string name(sizeof(halves), '\0');
    std::memcpy(name.data(), halves, sizeof(halves));
    if (isAscii(name)) names.push_back(name);
  }
  return names;
}

// The same each time, for they take a while to find.
class HostileNamesCostTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { names() = hostileNames(); }
  static std::vector<std::string>& names() {
    static std::vector<std::string> names;
    return names;
  }

  // The members of a JSON map, each with that value.
  static std::string mapOfAll(std::string_view value) {
    std::string map;
    for (const std::string& name : names()) {
      map += map.empty() ? "{\"" : ",\"";
      for (const char c : name) map += fmt::format("\\u{:04x}", c);
      map += fmt::format("\": {}", value);
    }
    return map + "}";
  }

  template <class Call>
  static std::size_t comparisonsOf(const Call& call) {
    const std::size_t before = cost::comparisons();
    call();
    return cost::comparisons() - before;
  }
};

TEST_F(HostileNamesCostTest, TheNamesHaveOneHashValue) {
  for (const std::string& name : names()) {
    ASSERT_EQ(std::hash<std::string_view>()(name), std::hash<std::string_view>()(names().front()));
  }
}

TEST_F(HostileNamesCostTest, AFieldIsFoundAmongFieldsOfOneHashValueInFewComparisons) {
  Qel::DocumentCodec::Fields fields;
  for (const std::string& name : names()) fields.emplace_back(name, "1");
  const std::size_t comparisons = comparisonsOf([&] {
    Qel::FieldReader reader(fields);
    for (const std::string& name : names()) EXPECT_EQ(reader.takeU32(name), 1U);
    EXPECT_NO_THROW(reader.needNoMore());
  });
  EXPECT_GE(comparisons, kNames);
  EXPECT_LE(comparisons, kMostForEachName * kNames);
}

TEST_F(HostileNamesCostTest, AMapOfNamesOfOneHashValueIsReadInFewComparisons) {
  const std::string text = mapOfAll("1");
  Qel::Document document;
  const std::size_t comparisons = comparisonsOf([&] { document = Kavra::Json::read(text); });
  ASSERT_NE(document.as<Qel::Document::Map>(), nullptr);
  EXPECT_EQ(document.as<Qel::Document::Map>()->size(), kNames);
  EXPECT_GE(comparisons, kNames);
  EXPECT_LE(comparisons, kMostForEachName * kNames);
}

TEST_F(HostileNamesCostTest, DocumentsAtPathsOfOneHashValueAreReadInFewComparisons) {
  const std::string text = mapOfAll("{}");
  std::vector<Kavra::Json::Member> members;
  const std::size_t comparisons =
      comparisonsOf([&] { members = Kavra::Json::readMembers(text, {}); });
  EXPECT_EQ(members.size(), kNames);
  EXPECT_GE(comparisons, kNames);
  EXPECT_LE(comparisons, kMostForEachName * kNames);
}

}  // namespace
