#include "Kavra/Redis/DocumentHash.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "platform/Kavra/Documents.h"

namespace Kavra::Redis {
namespace {

using kavratest::history;
using kavratest::kHistoryPath;
using kavratest::kHistoryType;
using kavratest::kRedundancyPath;
using kavratest::redundancy;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

using Hash = std::map<std::string, std::string>;

Hash hashOf(const Qel::String& path, const Qel::Document& document) {
  const auto fields = fieldsOf(path, document);
  return {fields.begin(), fields.end()};
}

Reply text(const std::string& value) { return {Reply::Kind::text, 0, value, {}}; }

Reply replyOf(const Hash& hash) {
  Reply reply{Reply::Kind::array, 0, {}, {}};
  for (const auto& [name, value] : hash) {
    reply.elements.push_back(text(name));
    reply.elements.push_back(text(value));
  }
  return reply;
}

std::string problemOf(const Qel::String& path, const Reply& reply) {
  const DocumentHash entity(path, reply);
  EXPECT_TRUE(entity.isPublished());
  EXPECT_FALSE(entity.document);
  return entity.problem.stdString();
}
std::string problemOf(const Hash& hash) { return problemOf(kHistoryPath, replyOf(hash)); }

TEST(DocumentHashTest, KeepsADocumentInFlatFieldsWithVersionAndCheck) {
  EXPECT_THAT(hashOf(kRedundancyPath, redundancy(3, true)),
              ElementsAre(Pair("_c", "6cb40d0436e6b4fd"), Pair("_v", "1"), Pair("protocol", "3"),
                          Pair("switchoverCapable", "true")));
}

TEST(DocumentHashTest, KeepsAnEmptyHistoryInTheVersionAlone) {
  EXPECT_THAT(hashOf(kHistoryPath, kavratest::historyOf({})), ElementsAre(Pair("_v", "1")));
  const DocumentHash entity(kHistoryPath, replyOf({{"_v", "1"}}));
  EXPECT_EQ(entity.document, kavratest::historyOf({}));
}

TEST(DocumentHashTest, NamesTheTypeWhereThePathDoesNot) {
  const Hash hash = hashOf("a", history({"one"}));
  EXPECT_EQ(hash.at("_t"), kHistoryType);
  EXPECT_EQ(DocumentHash("a", replyOf(hash)).document, history({"one"}));
  // The end of the path counts in whole names.
  EXPECT_EQ(hashOf("cell/1/nosys/reset/history", history({"one"})).count("_t"), 1U);
  EXPECT_EQ(hashOf("sys/reset/history", history({"one"})).count("_t"), 0U);
}

TEST(DocumentHashTest, ReadsBackAnyOctets) {
  std::string octets;
  for (int octet = 0; octet < 256; ++octet) octets.push_back(static_cast<char>(octet));
  const Qel::Document document = history({octets, "", "\xff"});
  EXPECT_EQ(DocumentHash(kHistoryPath, replyOf(hashOf(kHistoryPath, document))).document, document);
}

TEST(DocumentHashTest, OfNoFieldIsNotPublished) {
  EXPECT_FALSE(DocumentHash(kHistoryPath, replyOf({})).isPublished());
}

TEST(DocumentHashTest, TakesAHashWithoutCheckAsItIs) {
  Hash hash = hashOf(kHistoryPath, history({"one"}));
  hash.erase("_c");
  hash["0:0:d"] = "two";
  EXPECT_EQ(DocumentHash(kHistoryPath, replyOf(hash)).document, history({"two"}));
}

TEST(DocumentHashTest, RefusesFieldsThatAreNotThoseThatWerePublished) {
  const Hash good = hashOf(kHistoryPath, history({"one", "two"}));
  for (const auto& [name, value] : good) {
    if (name == "_c") continue;
    Hash changed = good;
    changed[name] = value.substr(0, value.size() / 2);
    Hash shortened = good;
    shortened.erase(name);
    if (changed != good) {
      EXPECT_THAT(problemOf(changed), HasSubstr("field _c: ")) << name;
    }
    EXPECT_THAT(problemOf(shortened), HasSubstr("field _c: ")) << name;
  }
  Hash swapped = good;
  std::swap(swapped["0:0:d"], swapped["0:1:d"]);
  EXPECT_THAT(problemOf(swapped), HasSubstr("not those that were published"));
}

TEST(DocumentHashTest, NamesTheKeyAndTheFieldThatCannotBeRead) {
  Hash hash = hashOf(kHistoryPath, history({"one"}));
  hash.erase("_c");
  const auto with = [&hash](const char* name, const char* value) {
    Hash changed = hash;
    changed[name] = value;
    return problemOf(changed);
  };
  const std::string key = "key kavra:e:cell/2/sys/reset/history, field ";
  EXPECT_EQ(with("0:0:t", "nan"), key + "0:0:t: not a finite number");
  EXPECT_EQ(with("0:n", "2"), key + "0:1:d: field is missing");
  EXPECT_THAT(with("0:n", "4294967295"), HasSubstr(key + "0:n: more causes"));
  EXPECT_THAT(with("n", "7"), HasSubstr(key + "n: is not the number"));
  EXPECT_THAT(with("\n\xff", "x"), HasSubstr("\\n\\xff"));
  EXPECT_EQ(with("_v", "2"), key + "_v: unknown version");
  EXPECT_THAT(with("_t", "Nonsense"), HasSubstr(key + "_t: unknown type 'Nonsense'"));
  hash.erase("_v");
  EXPECT_EQ(problemOf(hash), key + "_v: field is missing");
  EXPECT_EQ(problemOf("a", replyOf({{"_v", "1"}})), "key kavra:e:a, field _t: field is missing");
}

TEST(DocumentHashTest, SaysWhatStandsInThePlaceOfAHash) {
  const Reply error{Reply::Kind::error, 0, "WRONGTYPE Operation", {}};
  EXPECT_THAT(problemOf(kHistoryPath, error), HasSubstr("WRONGTYPE Operation"));
  EXPECT_THAT(problemOf(kHistoryPath, text("x")), HasSubstr("expected a hash but found a text"));
  const Reply odd{Reply::Kind::array, 0, {}, {text("x")}};
  EXPECT_THAT(problemOf(kHistoryPath, odd), HasSubstr("expected a hash"));
  const Reply nested{Reply::Kind::array, 0, {}, {text("x"), odd}};
  EXPECT_THAT(problemOf(kHistoryPath, nested), HasSubstr("a field is not made of texts"));
}

TEST(DocumentHashTest, FindsThePathOfAKey) {
  EXPECT_EQ(pathOfKey(keyOf("cell/1/a")), Qel::String("cell/1/a"));
  EXPECT_EQ(pathOfKey("kavra:log"), std::nullopt);
}

}  // namespace
}  // namespace Kavra::Redis
