#include "Kavra/Redis/Snapshot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>

#include "Kavra/Redis/DocumentHash.h"
#include "platform/Kavra/Documents.h"

namespace Kavra::Redis {
namespace {

using kavratest::history;
using kavratest::kHistoryPath;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using Fields = Qel::DocumentCodec::Fields;

// What a server that holds one document answers, again and again.
class SnapshotTest : public testing::Test {
 protected:
  // A ring for whatever path brings the next one.
  Snapshot next() {
    Snapshot snapshot({{kHistoryPath}, false}, outcome(), &known_);
    known_.merge(Snapshot::Octets(snapshot.octets));
    return snapshot;
  }
  bool isDecodedNext() {
    const Snapshot snapshot = next();
    const bool isDecoded = snapshot.documents.contains(kHistoryPath);
    EXPECT_NE(isDecoded, snapshot.unchanged.contains(kHistoryPath));
    return isDecoded;
  }

  Fields fields_ = fieldsOf(kHistoryPath, history({"one", "two"}));
  Snapshot::Octets known_;

 private:
  static Reply text(const std::string& value) { return {Reply::Kind::text, 0, value, {}}; }
  Reply outcome() const {
    Reply hash{Reply::Kind::array, 0, {}, {}};
    for (const auto& [name, value] : fields_) {
      hash.elements.push_back(text(name));
      hash.elements.push_back(text(value));
    }
    const Reply noLog{Reply::Kind::error, 0, "ERR no such key", {}};
    return {Reply::Kind::array, 0, {}, {text("epoch"), noLog, hash}};
  }
};

TEST_F(SnapshotTest, DecodesADocumentOnceWhileItsFieldsStandAsTheyAre) {
  EXPECT_THAT(next().documents, ElementsAre(Pair(kHistoryPath, history({"one", "two"}))));
  EXPECT_FALSE(isDecodedNext());
  EXPECT_FALSE(isDecodedNext());
}

TEST_F(SnapshotTest, DecodesADocumentAgainWhoseFieldsStandInAnotherOrder) {
  next();
  std::swap(fields_.front(), fields_.back());
  EXPECT_TRUE(isDecodedNext());
}

TEST_F(SnapshotTest, NoticesEveryOctetThatIsDamagedUnderTheSameCheck) {
  next();
  const Fields whole = fields_;
  for (std::size_t i = 0; i < whole.size(); ++i) {
    for (const auto text : {&Fields::value_type::first, &Fields::value_type::second}) {
      for (std::size_t octet = 0; octet < (whole[i].*text).size(); ++octet) {
        fields_ = whole;
        (fields_[i].*text)[octet] ^= 1;
        const Snapshot snapshot = next();
        EXPECT_THAT(snapshot.unreadable, ElementsAre(Pair(kHistoryPath, _)));
        EXPECT_THAT(snapshot.unchanged, IsEmpty());
      }
    }
  }
}

TEST_F(SnapshotTest, NoticesAnOctetThatMovedFromANameToTheValueBefore) {
  fields_ = {{"_v", "1"},    {"n", "1"},    {"0:n", "1"},  {"0:0:d", "x"},
             {"0:0:t", "1"}, {"0:0:a", ""}, {"0:0:b", "y"}};
  EXPECT_TRUE(isDecodedNext());
  fields_[5].second = "0";
  fields_[6].first = ":0:b";
  EXPECT_THAT(next().unreadable, ElementsAre(Pair(kHistoryPath, _)));
}

TEST_F(SnapshotTest, TakesADocumentThatIsGoneForNoneThatIsKnown) {
  next();
  fields_.clear();
  const Snapshot snapshot = next();
  EXPECT_THAT(snapshot.documents, IsEmpty());
  EXPECT_THAT(snapshot.unchanged, IsEmpty());
}

}  // namespace
}  // namespace Kavra::Redis
