#include "resetcause/Evidence.h"

#include <array>

namespace ResetCause {

std::string_view nameOf(Kind kind) noexcept {
  constexpr std::array<std::string_view, kKinds> kNames{"panic dump",
                                                        "restart dump",
                                                        "software watchdog",
                                                        "watchdog",
                                                        "BMC watchdog",
                                                        "init crashed",
                                                        "maker",
                                                        "request",
                                                        "power key",
                                                        "shutdown record",
                                                        "Ctrl-Alt-Del",
                                                        "failed unit",
                                                        "target reached",
                                                        "journal stopped",
                                                        "wtmp shutdown",
                                                        "hardware fault",
                                                        "BMC",
                                                        "kernel's reset reason"};
  return kNames[static_cast<std::size_t>(kind)];
}

bool isTime(double seconds) noexcept {
  constexpr double kEndOfTime = 253402300800;
  return seconds >= 0 && seconds < kEndOfTime;
}

}  // namespace ResetCause
