#pragma once

#include <string_view>

#include "Qel/String.h"
#include "Qel/Types.h"

// String representations ("streps") and the readers that take them apart again. Readers advance
// `pos` past what they read and raise ParseException, naming what they wanted, where, and what
// stands there; `pos` is then where reading stopped.
namespace Qel {

// Decimal digits.
String valueToStrep(unsigned long long value);
String valueToStrep(U32 value);
// "True" or "False".
String valueToStrep(bool value);
// Shortest decimal text that reads back to the same number.
String valueToStrep(double value);
// The text in single quotes; quotes, backslashes and octets outside printable ASCII are escaped.
String valueToStrep(const String& value);
// An address would otherwise pass for a bool, a literal text too.
String valueToStrep(const void* value) = delete;

// "Ptr('TYPE', 0xADDRESS)", or "Ptr('TYPE', null)".
String valueToStrepOfRawPtr(const void* pointer, std::string_view type);

// Reads exactly `literal`.
void needString(String::IteratorConst& pos, const String::IteratorConst& end,
                std::string_view literal);

// Reads the value of the attribute `name`; specialised for the types that occur in text forms.
template <class T>
T deserializeAttr(String::IteratorConst& pos, const String::IteratorConst& end,
                  std::string_view name);
template <>
U32 deserializeAttr<U32>(String::IteratorConst& pos, const String::IteratorConst& end,
                         std::string_view name);

// Requires that `pos` stands at the end of `text`.
void strepToValueEnd(const String& text, const String::IteratorConst& pos);

}  // namespace Qel
