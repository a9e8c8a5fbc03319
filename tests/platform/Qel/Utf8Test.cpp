#include "Qel/Utf8.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace Qel {
namespace {

using namespace std::string_view_literals;

TEST(Utf8Test, AcceptsTheFirstAndLastOfEachLength) {
  for (const auto text : {""sv, "\0"sv, "\x7f"sv, "\xc2\x80"sv, "\xdf\xbf"sv, "\xe0\xa0\x80"sv,
                          "\xed\x9f\xbf"sv, "\xee\x80\x80"sv, "\xef\xbf\xbf"sv,
                          "\xf0\x90\x80\x80"sv, "\xf4\x8f\xbf\xbf"sv, "a\xc3\xa4z"sv}) {
    EXPECT_TRUE(isUtf8(text)) << testing::PrintToString(std::string(text));
  }
}

TEST(Utf8Test, RefusesWhatIsTornOverlongASurrogateOrTooLarge) {
  for (const auto text :
       {"\x80"sv, "\xff"sv, "\xc0\x80"sv, "\xc1\xbf"sv, "\xc2"sv, "\xc2\x41"sv, "\xe0\x9f\xbf"sv,
        "\xed\xa0\x80"sv, "\xe2\x82"sv, "\xe2\x82\xc0"sv, "\xf0\x8f\xbf\xbf"sv,
        "\xf4\x90\x80\x80"sv, "\xf5\x80\x80\x80"sv, "\xf0\x90\x80"sv, "ok\xfe"sv}) {
    EXPECT_FALSE(isUtf8(text)) << testing::PrintToString(std::string(text));
  }
}

}  // namespace
}  // namespace Qel
