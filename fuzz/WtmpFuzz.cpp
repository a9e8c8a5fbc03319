// Any octets are read as records of wtmp, no more of them than fit in; wherever this boot is taken
// to begin, what was before it is of them.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "Qel/Assert.h"
#include "resetcause/Wtmp.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto records = ResetCause::readWtmp({reinterpret_cast<const char*>(data), size});
  QEL_ASSERT(records.size() <= size / 384);
  for (const double start : {0.0, 1700000000.0}) {
    const auto before = ResetCause::beforeBoot(records, start, 1600000000.0);
    const auto isOne = [&](const std::optional<double>& time) {
      return !time ||
             std::ranges::find(records, *time, &ResetCause::WtmpRecord::time) != records.end();
    };
    QEL_ASSERT(isOne(before.start) && isOne(before.shutdown));
  }
  return 0;
}
