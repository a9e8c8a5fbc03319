// Any fields are either the flat form of a history, and then survive a round trip through document
// and fields, or refused with a place. Fields are the input's lines, name and value in turn.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Qel/Assert.h"
#include "Qel/Document.h"
#include "System/ResetCauseHistoryCodec.h"

namespace {

Qel::DocumentCodec::Fields fieldsOf(std::string_view input) {
  Qel::DocumentCodec::Fields fields;
  std::string name;
  bool isName = true;
  while (!input.empty()) {
    const std::size_t end = input.find('\n');
    const std::string line(input.substr(0, end));
    input.remove_prefix(end == std::string_view::npos ? input.size() : end + 1);
    if (isName) {
      name = line;
    } else {
      fields.emplace_back(name, line);
    }
    isName = !isName;
  }
  return fields;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const System::ResetCauseHistoryCodec codec{};
  try {
    const Qel::Document document =
        codec.documentOf(fieldsOf({reinterpret_cast<const char*>(data), size}));
    const auto fields = codec.fieldsOf(document);
    QEL_ASSERT(codec.fieldsOf(codec.documentOf(fields)) == fields);
  } catch (const Qel::DocumentException&) {
  }
  return 0;
}
