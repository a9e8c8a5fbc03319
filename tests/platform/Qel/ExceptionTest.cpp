#include "Qel/Exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Qel/Strep.h"
#include "support/TraceRecorder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ExceptionTest : public testing::Test {
 protected:
  // Raises, and hands back the text of the error of that very type.
  template <class Error, class Raise>
  std::string textOf(Raise raise) {
    try {
      raise("the text");
    } catch (const Error& error) {
      EXPECT_EQ(error.text(), error.what());
      return error.what();
    }
    return "no error";
  }

  support::TraceRecorder recorder_{{"Qel", 1}};
};

TEST_F(ExceptionTest, EachRaisesItsOwnErrorWithTheText) {
  EXPECT_EQ(textOf<Qel::RangeException>(Qel::throwRangeException), "the text");
  EXPECT_EQ(textOf<Qel::NameInUseException>(Qel::throwNameInUseException), "the text");
  EXPECT_EQ(textOf<Qel::ParseException>(Qel::throwParseException), "the text");
  EXPECT_EQ(textOf<Qel::TypeException>(Qel::throwTypeException), "the text");
  EXPECT_EQ(textOf<Qel::OperationNotSupportedException>(Qel::throwOperationNotSupportedException),
            "the text");
}

TEST_F(ExceptionTest, AKeyInUseIsTellingOfTheAttributeAndBothItsValues) {
  const int present = 0;
  EXPECT_EQ(textOf<Qel::NameInUseException>([&](const char*) {
              Qel::throwReinstantiationException("_lamp", nullptr, &present, "Lamp");
            }),
            "Reinstantiating the pointer interface where constructor parameter attribute _lamp has "
            "a different value of Ptr('Lamp', null) than the current value of " +
                Qel::valueToStrepOfRawPtr(&present, "Lamp").stdString() + " not allowed");
  EXPECT_EQ(recorder_.lines().size(), 1U);
}

TEST_F(ExceptionTest, RangeAndNameErrorsAreReported) {
  EXPECT_THROW(Qel::throwRangeException("null ValidPtr"), Qel::RangeException);
  EXPECT_THROW(Qel::throwNameInUseException("taken"), Qel::NameInUseException);
  EXPECT_THROW(Qel::throwParseException("quiet"), Qel::ParseException);
  EXPECT_THAT(recorder_.lines(), ElementsAre("Qel 1: raised RangeException: null ValidPtr",
                                             "Qel 1: raised NameInUseException: taken"));
}

TEST_F(ExceptionTest, AnExpectedRangeErrorIsNotReported) {
  {
    const Qel::RangeExceptionExpectation outer;
    { const Qel::RangeExceptionExpectation inner; }
    EXPECT_THROW(Qel::throwRangeException("expected"), Qel::RangeException);
    EXPECT_THROW(Qel::throwNameInUseException("taken"), Qel::NameInUseException);
  }
  EXPECT_THROW(Qel::throwRangeException("unexpected"), Qel::RangeException);
  EXPECT_THAT(recorder_.lines(), ElementsAre("Qel 1: raised NameInUseException: taken",
                                             "Qel 1: raised RangeException: unexpected"));
}

TEST_F(ExceptionTest, AnExpectationEndsWhereItsErrorIsCaught) {
  try {
    const Qel::RangeExceptionExpectation expected;
    Qel::throwRangeException("expected");
  } catch (const Qel::RangeException&) {
  }
  EXPECT_THAT(recorder_.lines(), IsEmpty());
  EXPECT_THROW(Qel::throwRangeException("unexpected"), Qel::RangeException);
  EXPECT_EQ(recorder_.lines().size(), 1U);
}

}  // namespace
