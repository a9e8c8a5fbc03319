#include "tools/Serve.h"

#include <filesystem>
#include <system_error>

#include "Kavra/Publisher.h"
#include "Qel/PollEventLoop.h"
#include "tools/EndOnSignal.h"
#include "tools/Errors.h"

namespace Tools {

void serve(const Kavra::StoreUrl& url, const std::string& file,
           const Qel::Ptr<Qel::Clock const>& clock) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error)) {
    throw CommandError(file + ": " + (error ? error.message() : "not a file"));
  }
  url.tellIfNotEncrypted();
  Qel::PollEventLoop loop;
  const EndOnSignal endOnSignal(loop);
  const auto publisher = Qel::make<Kavra::Publisher>(
      Kavra::StoreUrl("file:" + file).feed(loop, clock), url.store(clock), loop);
  loop.run();
}

}  // namespace Tools
