#include "tools/Watch.h"

#include "Kavra/CheckedDocument.h"
#include "Kavra/Feed.h"
#include "Kavra/Json/Text.h"
#include "Qel/Document.h"
#include "Qel/PollEventLoop.h"
#include "Qel/String.h"
#include "tools/EndOnSignal.h"
#include "tools/Errors.h"

namespace Tools {

namespace {

std::string lineOf(const Qel::String& path, const Kavra::CheckedDocument* checked) {
  const Qel::Document::Map line{
      {"path", path}, {"document", checked == nullptr ? Qel::Document() : checked->document}};
  return Kavra::Json::writePrintable(line, Kavra::Json::Form::line);
}

}  // namespace

void watch(const Kavra::StoreUrl& url, const std::string& prefix,
           const Qel::Ptr<Qel::Clock const>& clock, std::ostream& out) {
  Qel::PollEventLoop loop;
  const EndOnSignal endOnSignal(loop);
  const auto follow =
      url.feed(loop, clock)
          ->followPrefixIs(
              Qel::String(prefix),
              [&](const Qel::String& path, const Kavra::CheckedDocument* checked) -> Qel::String {
                // What does not fit is on standard error already.
                if (checked != nullptr && !checked->fits()) return {};
                out << lineOf(path, checked) << std::flush;
                if (!out) loop.stop();
                return {};
              });
  loop.run();
  if (!out) throw CommandError("standard output takes no more");
}

}  // namespace Tools
