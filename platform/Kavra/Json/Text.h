#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "Qel/Document.h"
#include "Qel/Exception.h"

// Documents as JSON (RFC 8259), the form in which files and the command line show them.
//
// JSON texts are UTF-8, the texts of documents any octets. A text that is not UTF-8 is written as
// {"base64": "..."} (RFC 4648, padded), and wherever such an object stands, with that text as its
// only member, it is read as the text of those octets.
namespace Kavra::Json {

// Text that is not the JSON of a document; names the line and column, or the place in the document.
class Exception : public Qel::Exception {
 public:
  using Qel::Exception::Exception;
  ~Exception() override;
};

// Reads one document. Besides what is no JSON, raises Exception for a member that stands twice,
// numbers outside 64 bits (integers) or the range of doubles, and what is larger or nested deeper
// than a document may be (see Qel/Limits.h), without reading on.
Qel::Document read(std::string_view text);

enum class Form {
  line,    // all on one line
  pretty,  // a line a member, indented
};
// Members in the order of the document, numbers as short as reads back to the same; no line end.
// Lines are indented as inside so many `levels` of lists and maps.
// Raises Exception for a number that is not finite or a member name that is not UTF-8.
std::string write(const Qel::Document& document, Form form, std::size_t levels = 0);

// The same for a terminal, and with a line end: what a terminal takes for more than text
// (Qel::isControl) is spelt \uNNNN. It reads back to the same.
std::string writePrintable(const Qel::Document& document, Form form);

}  // namespace Kavra::Json
