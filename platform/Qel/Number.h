#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace Qel {

// The whole of `text` as a number, as std::from_chars reads it (decimal, no blanks, no plus sign);
// nothing for any other text and for what the type cannot hold.
template <class Number>
std::optional<Number> numberOf(std::string_view text) noexcept {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

}  // namespace Qel
