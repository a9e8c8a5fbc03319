// Any octets are a maker's register that names a cause, one that names none, or refused.
#include <cstddef>
#include <cstdint>

#include "Qel/Assert.h"
#include "Qel/Exception.h"
#include "resetcause/MakerSource.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const auto one = ResetCause::readMaker({reinterpret_cast<const char*>(data), size}, "f");
    QEL_ASSERT(!one || (!one->text.empty() && one->kind == ResetCause::Kind::maker));
  } catch (const Qel::Exception&) {
  }
  return 0;
}
