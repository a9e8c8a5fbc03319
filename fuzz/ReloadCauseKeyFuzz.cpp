// Any text is either the text form of a key, which it then reproduces but for leading zeros, or
// refused with a parse error.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "MiscSnmp/ReloadCauseKey.h"
#include "Qel/Assert.h"
#include "Qel/Exception.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Qel::String text(std::string_view(reinterpret_cast<const char*>(data), size));
  try {
    Qel::String::IteratorConst pos = text.begin();
    const MiscSnmp::ReloadCauseKey key(pos, text.end());
    QEL_ASSERT(pos <= text.end());
    const Qel::String written = MiscSnmp::valueToStrep(key);
    Qel::String::IteratorConst again = written.begin();
    QEL_ASSERT(MiscSnmp::ReloadCauseKey(again, written.end()) == key);
    QEL_ASSERT(again == written.end());
  } catch (const Qel::ParseException&) {
  }
  return 0;
}
