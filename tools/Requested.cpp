#include "tools/Requested.h"

#include <algorithm>
#include <array>

namespace Tools {

bool isRequested(std::string_view description) noexcept {
  constexpr std::array<std::string_view, 3> kBegins{"Reload requested", "Powered off by request",
                                                    "Power button pressed"};
  return std::ranges::any_of(
      kBegins, [&](std::string_view begin) { return description.starts_with(begin); });
}

bool isRequested(const ReportedReload& reload) noexcept {
  return !reload.causes.empty() && isRequested(reload.causes.front().description);
}

}  // namespace Tools
