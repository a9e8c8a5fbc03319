#include "Kavra/Json/Base64.h"

#include <gtest/gtest.h>

#include <string>

namespace Kavra::Json {
namespace {

TEST(Base64Test, WritesTheVectorsOfTheRfc) {
  EXPECT_EQ(toBase64(""), "");
  EXPECT_EQ(toBase64("f"), "Zg==");
  EXPECT_EQ(toBase64("fo"), "Zm8=");
  EXPECT_EQ(toBase64("foo"), "Zm9v");
  EXPECT_EQ(toBase64("foob"), "Zm9vYg==");
  EXPECT_EQ(toBase64("fooba"), "Zm9vYmE=");
  EXPECT_EQ(toBase64("foobar"), "Zm9vYmFy");
}

TEST(Base64Test, ReadsBackEveryOctet) {
  std::string octets;
  for (int i = 0; i < 256; ++i) {
    octets.push_back(static_cast<char>(i));
    EXPECT_EQ(ofBase64(toBase64(octets)), octets);
  }
}

TEST(Base64Test, RefusesWhatItWouldNotWrite) {
  for (const char* text : {"Z", "Zg", "Zg=", "Z===", "====", "Zg==Zg==", "Zm9v\n",
                           "Zh==", "Zm9=", "Z*8=", "Zm 9", "-_8="}) {
    EXPECT_EQ(ofBase64(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace Kavra::Json
