#include "Qel/Strep.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <type_traits>

#include "Qel/Exception.h"

namespace {

using Qel::String;
using Qel::valueToStrep;
using namespace std::string_view_literals;

template <class T>
concept HasStrep = requires(T value) {
  valueToStrep(value);
};

TEST(StrepTest, NumbersAreDecimalDigits) {
  EXPECT_EQ(valueToStrep(0ULL), "0");
  EXPECT_EQ(valueToStrep(std::numeric_limits<unsigned long long>::max()), "18446744073709551615");
  EXPECT_EQ(valueToStrep(std::numeric_limits<U32>::max()), "4294967295");
}

TEST(StrepTest, DoublesAreTheShortestTextThatReadsBack) {
  EXPECT_EQ(valueToStrep(1700000000.9), "1700000000.9");
  EXPECT_EQ(valueToStrep(0.1), "0.1");
  EXPECT_EQ(std::stod(valueToStrep(1.0 / 3.0).stdString()), 1.0 / 3.0);
}

TEST(StrepTest, BoolsAreWords) {
  EXPECT_EQ(valueToStrep(true), "True");
  EXPECT_EQ(valueToStrep(false), "False");
}

TEST(StrepTest, TextsAreQuotedAndPrintable) {
  EXPECT_EQ(valueToStrep(String("plain ~")), "'plain ~'");
  EXPECT_EQ(valueToStrep(String()), "''");
  EXPECT_EQ(valueToStrep(String("it's a \\")), "'it\\'s a \\\\'");
  EXPECT_EQ(valueToStrep(String("\0\n\x7f\xe9"sv)), "'\\x00\\x0a\\x7f\\xe9'");
}

TEST(StrepTest, APointerIsNotTakenForABool) {
  EXPECT_TRUE(HasStrep<bool>);
  EXPECT_FALSE(HasStrep<const char*>);
  EXPECT_FALSE(HasStrep<int*>);
}

TEST(StrepTest, RawPointersShowTypeAndAddress) {
  EXPECT_EQ(
      Qel::valueToStrepOfRawPtr(reinterpret_cast<const void*>(0xabc), "System::ResetInstance"),
      "Ptr('System::ResetInstance', 0xabc)");
  EXPECT_EQ(Qel::valueToStrepOfRawPtr(nullptr, "T"), "Ptr('T', null)");
}

// Reads one text from its start.
class StrepReaderTest : public testing::Test {
 protected:
  void over(std::string_view text) {
    text_ = String(text);
    pos_ = text_.begin();
  }
  void needString(std::string_view literal) { Qel::needString(pos_, text_.end(), literal); }
  U32 readU32() { return Qel::deserializeAttr<U32>(pos_, text_.end(), "unitIndex"); }
  std::string rest() const { return std::string(pos_, text_.end()); }
  template <class Read>
  std::string refusal(Read read) {
    try {
      read();
    } catch (const Qel::ParseException& error) {
      return error.what();
    }
    return "no refusal";
  }

  String text_;
  String::IteratorConst pos_ = nullptr;
};

TEST_F(StrepReaderTest, ReadsALiteralAndStopsBehindIt) {
  over("Value(12");
  needString("Value(");
  EXPECT_EQ(rest(), "12");
  needString("");
  EXPECT_EQ(rest(), "12");
}

TEST_F(StrepReaderTest, RefusesAnotherLiteralAndStaysThere) {
  over("'unitIndex':1");
  EXPECT_EQ(refusal([this] { needString("'unitIndex': "); }),
            "expected ''unitIndex': ' but found ''unitIndex':1'");
  EXPECT_EQ(rest(), "'unitIndex':1");
}

TEST_F(StrepReaderTest, RefusesATextThatEndsEarly) {
  over("Val");
  EXPECT_EQ(refusal([this] { needString("Value("); }), "expected 'Value(' but found 'Val'");
  pos_ = text_.end();
  EXPECT_EQ(refusal([this] { needString("Value("); }),
            "expected 'Value(' but found the end of the text");
}

TEST_F(StrepReaderTest, QuotesNoMoreThanTheBeginning) {
  over("abcdefghijklmnopqrstuvwxyz");
  EXPECT_EQ(refusal([this] { needString("!"); }),
            "expected '!' but found 'abcdefghijklmnopqrstuvwx...'");
}

TEST_F(StrepReaderTest, ReadsUnsignedNumbersOfTheWholeRange) {
  over("0,4294967295,007)");
  EXPECT_EQ(readU32(), 0U);
  needString(",");
  EXPECT_EQ(readU32(), 4294967295U);
  needString(",");
  EXPECT_EQ(readU32(), 7U);
  EXPECT_EQ(rest(), ")");
}

TEST_F(StrepReaderTest, RefusesWhatIsNoUnsignedNumberAndNamesTheAttribute) {
  for (const char* text : {"", "-1", "+1", " 1", "x", "4294967296", "99999999999999999999"}) {
    over(text);
    const std::string message = refusal([this] { readU32(); });
    EXPECT_EQ(message.rfind("attribute unitIndex: ", 0), 0U) << message;
    EXPECT_EQ(rest(), text);
  }
}

TEST_F(StrepReaderTest, RequiresTheEndOfTheText) {
  over("a");
  EXPECT_EQ(refusal([this] { Qel::strepToValueEnd(text_, pos_); }),
            "expected the end of the text but found 'a'");
  ++pos_;
  EXPECT_NO_THROW(Qel::strepToValueEnd(text_, pos_));
  EXPECT_NO_THROW(Qel::strepToValueEnd(String(), String().begin()));
}

}  // namespace
