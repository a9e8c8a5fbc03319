#include "tools/Watch.h"

#include "Kavra/Feed.h"
#include "Kavra/JsonText.h"
#include "Qel/Document.h"
#include "Qel/PollEventLoop.h"
#include "Qel/String.h"
#include "tools/EndOnSignal.h"
#include "tools/Errors.h"

namespace Tools {

namespace {

std::string lineOf(const Qel::String& path, const Kavra::Publication* publication) {
  const Qel::Document::Map line{
      {"path", path},
      {"document", publication == nullptr ? Qel::Document() : publication->document}};
  return Kavra::toJson(line, Kavra::JsonForm::line);
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
              [&](const Qel::String& path, const Kavra::Publication* publication) -> Qel::String {
                // What does not fit is on standard error already.
                if (publication != nullptr && !publication->fits()) return {};
                out << lineOf(path, publication) << '\n' << std::flush;
                if (!out) loop.stop();
                return {};
              });
  loop.run();
  if (!out) throw CommandError("standard output takes no more");
}

}  // namespace Tools
