#pragma once

#include <fmt/printf.h>

#include <string_view>
#include <type_traits>  // IWYU pragma: keep

#include "Qel/Name.h"
#include "Qel/String.h"

namespace Qel {

namespace detail {

template <class T>
auto formatArgument(const T& value) {
  if constexpr (std::is_same_v<T, String>) {
    return value.view();
  } else if constexpr (std::is_same_v<T, Name>) {
    return value.string().view();
  } else {
    return value;
  }
}

}  // namespace detail

// printf-style template filled with typed arguments: %s takes texts, %u and %d integers, %f
// doubles. A directive that does not fit its argument raises fmt::format_error.
template <class... Args>
String format(std::string_view text, const Args&... args) {
  return String(fmt::sprintf(text, detail::formatArgument(args)...));
}

}  // namespace Qel
