#include "Snmp/Converters.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <ctime>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "Qel/Exception.h"

namespace Snmp {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

using Octets = std::vector<int>;

// What a converter writes into a buffer of that length, or nothing when it refuses. Octets that it
// does not claim must stay untouched.
template <class Converter, class Value>
Octets written(const Converter& converter, const Value& value, std::size_t length) {
  std::vector<unsigned char> buffer(length + 1, 0xee);
  const int count = converter(value, buffer.data(), length);
  const std::size_t claimed = count < 0 ? 0 : static_cast<std::size_t>(count);
  EXPECT_THAT(std::vector<int>(buffer.begin() + static_cast<std::ptrdiff_t>(claimed), buffer.end()),
              Each(0xee));
  return {buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(claimed)};
}

Octets dateAndTime(double seconds, std::size_t length = 11) {
  return written(SecondsToAsnDateAndTimeF(), seconds, length);
}

int octetsOf(const std::string& text, std::size_t length) {
  std::vector<unsigned char> buffer(length);
  return StringToAsnOctetStringF()(Qel::String(text), buffer.data(), length);
}

TEST(StringToAsnOctetStringTest, CopiesTheOctetsAsTheyAre) {
  const Qel::String text(std::string("a\0\xff", 3));
  EXPECT_THAT(written(StringToAsnOctetStringF(), text, 1024), ElementsAre('a', 0, 255));
}

TEST(StringToAsnOctetStringTest, AnEmptyTextHasNoOctets) { EXPECT_EQ(octetsOf("", 1024), 0); }

TEST(StringToAsnOctetStringTest, FitsABufferOfItsLength) {
  EXPECT_EQ(octetsOf(std::string(1024, 'x'), 1024), 1024);
}

TEST(StringToAsnOctetStringTest, IsNegativeWhenTheTextDoesNotFit) {
  EXPECT_LT(octetsOf(std::string(1025, 'x'), 1024), 0);
  EXPECT_THAT(written(StringToAsnOctetStringF(), Qel::String("abc"), 2), IsEmpty());
}

TEST(SecondsToAsnDateAndTimeTest, SecondZeroIsTheFirstOf1970InUtc) {
  EXPECT_THAT(dateAndTime(0.0), ElementsAre(7, 178, 1, 1, 0, 0, 0, 0, '+', 0, 0));
}

TEST(SecondsToAsnDateAndTimeTest, WritesYearToSecond) {
  // 2023-11-14 22:13:20
  EXPECT_THAT(dateAndTime(1700000000.0), ElementsAre(7, 231, 11, 14, 22, 13, 20, 0, '+', 0, 0));
  // 2106-02-07 06:28:15, the last second of 32 bits
  EXPECT_THAT(dateAndTime(4294967295.0), ElementsAre(8, 58, 2, 7, 6, 28, 15, 0, '+', 0, 0));
  // 2000-02-29, a leap day of a century
  EXPECT_THAT(dateAndTime(951782400.0), ElementsAre(7, 208, 2, 29, 0, 0, 0, 0, '+', 0, 0));
}

TEST(SecondsToAsnDateAndTimeTest, CutsDecisecondsOff) {
  EXPECT_EQ(dateAndTime(1.5)[7], 5);
  EXPECT_EQ(dateAndTime(1.99)[7], 9);
  EXPECT_EQ(dateAndTime(1.99)[6], 1);
  EXPECT_EQ(dateAndTime(std::nextafter(1.0, 0.0))[7], 9);
}

TEST(SecondsToAsnDateAndTimeTest, AgreesWithTheSystemCalendar) {
  std::mt19937_64 random(20260103);
  std::uniform_int_distribution<long> any(0, 2005949145599);  // to the end of the year 65535
  for (int i = 0; i < 20000; ++i) {
    const std::time_t seconds = any(random);
    std::tm date{};
    ASSERT_NE(gmtime_r(&seconds, &date), nullptr);
    const int year = date.tm_year + 1900;
    ASSERT_THAT(dateAndTime(static_cast<double>(seconds)),
                ElementsAre(year / 256, year % 256, date.tm_mon + 1, date.tm_mday, date.tm_hour,
                            date.tm_min, date.tm_sec, 0, '+', 0, 0))
        << seconds;
  }
}

TEST(SecondsToAsnDateAndTimeTest, EndsWithTheYear65535) {
  EXPECT_THAT(dateAndTime(2005949145599.0),
              ElementsAre(255, 255, 12, 31, 23, 59, 59, 0, '+', 0, 0));
  EXPECT_THAT(dateAndTime(2005949145600.0), IsEmpty());
  EXPECT_THAT(dateAndTime(1.0e300), IsEmpty());
}

TEST(SecondsToAsnDateAndTimeTest, HasNoFormForTimesThatAreNone) {
  EXPECT_THAT(dateAndTime(-1.0), IsEmpty());
  EXPECT_THAT(dateAndTime(-0.1), IsEmpty());
  EXPECT_THAT(dateAndTime(std::nan("")), IsEmpty());
  EXPECT_THAT(dateAndTime(std::numeric_limits<double>::infinity()), IsEmpty());
  EXPECT_THAT(dateAndTime(-std::numeric_limits<double>::infinity()), IsEmpty());
}

TEST(SecondsToAsnDateAndTimeTest, IsNegativeWhenTheBufferIsTooShort) {
  EXPECT_THAT(dateAndTime(0.0, 10), IsEmpty());
  EXPECT_THAT(dateAndTime(0.0, 12), testing::SizeIs(11));
}

TEST(U32ToAsnUnsignedTest, WritesALongOfTheHost) {
  for (const U32 value : {0U, 1U, 2147483648U, 4294967295U}) {
    std::array<unsigned char, 1024> buffer{};
    ASSERT_EQ(U32ToAsnUnsignedF()(value, buffer.data(), buffer.size()), int{sizeof(long)});
    long kept = 0;
    std::memcpy(&kept, buffer.data(), sizeof kept);
    EXPECT_EQ(kept, long{value});
    EXPECT_EQ(AsnUnsignedToU32(buffer.data()), value);
  }
}

TEST(U32ToAsnUnsignedTest, IsNegativeWhenTheBufferIsTooShort) {
  EXPECT_THAT(written(U32ToAsnUnsignedF(), 1U, sizeof(long) - 1), IsEmpty());
}

TEST(AsnUnsignedToU32Test, RaisesARangeErrorBeyond32Bits) {
  const auto convert = [](long value) { return [value] { AsnUnsignedToU32(&value); }; };
  EXPECT_THAT(convert(4294967296), ThrowsMessage<Qel::RangeException>(HasSubstr("4294967296")));
  EXPECT_THAT(convert(-1), ThrowsMessage<Qel::RangeException>(HasSubstr("-1")));
  EXPECT_THROW(AsnUnsignedToU32(nullptr), Qel::RangeException);
}

}  // namespace
}  // namespace Snmp
