// Any octets are a dump or none; what it tells is part of them, and a part more changes nothing
// that a panic has told.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Qel/Assert.h"
#include "resetcause/DumpText.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using ResetCause::DumpText;
  const std::string text(reinterpret_cast<const char*>(data), size);
  const DumpText dump = ResetCause::readDump(text);
  QEL_ASSERT(dump.why != DumpText::Why::nothing || dump.text.empty());
  QEL_ASSERT(dump.text.size() <= 400);
  QEL_ASSERT(dump.behind >= 0);
  QEL_ASSERT(dump.way.empty() || dump.why == DumpText::Why::restart);
  QEL_ASSERT(dump.text == "no text" || dump.why == DumpText::Why::watchdog ||
             text.find(dump.text) != std::string::npos);
  if (dump.why == DumpText::Why::panic) {
    QEL_ASSERT(ResetCause::readDump(text + "\nEmergency#9 Part1\nreboot: Restarting system\n") ==
               dump);
  }
  return 0;
}
