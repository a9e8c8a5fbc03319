#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Kavra::Redis {

// One reply of a Redis server. Texts hold any octets.
struct Reply {
  enum class Kind { nil, integer, status, error, text, array };

  Kind kind = Kind::nil;
  long long integer = 0;
  std::string text;  // of a status, an error or a text
  std::vector<Reply> elements;

  bool isNil() const noexcept { return kind == Kind::nil; }
  bool isError() const noexcept { return kind == Kind::error; }
  bool isText() const noexcept { return kind == Kind::text; }
  bool isArray() const noexcept { return kind == Kind::array; }
  bool isStatus(std::string_view value) const noexcept {
    return kind == Kind::status && text == value;
  }

  // What it is, for messages: "nothing", "an integer", "an error: ...", ...
  std::string description() const;
};

}  // namespace Kavra::Redis
