#include "tools/Serve.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

#include "Kavra/Claim.h"
#include "Kavra/Publisher.h"
#include "Qel/Escape.h"
#include "Qel/PollEventLoop.h"
#include "Qel/ServiceManager.h"
#include "tools/EndOnSignal.h"
#include "tools/Errors.h"

namespace Tools {

namespace {

std::string hostName() {
  std::array<char, 256> name{};
  return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

// Another one each time this machine comes up; empty where the kernel does not tell.
std::string bootId() {
  std::ifstream in("/proc/sys/kernel/random/boot_id");
  std::string id;
  std::getline(in, id);
  return id;
}

// The file that a name leads to, there or not.
std::string wholeName(const std::string& file) {
  std::error_code error;
  const std::filesystem::path whole =
      std::filesystem::weakly_canonical(std::filesystem::absolute(file, error), error);
  return error ? file : whole.string();
}

// What a publisher writes there it would publish again.
void needAnotherFile(const Kavra::StoreUrl& url, const std::string& file) {
  constexpr std::string_view kScheme = "file:";
  if (!url.text().starts_with(kScheme)) return;
  if (wholeName(file) != wholeName(url.text().substr(kScheme.size()))) return;
  throw CommandError(
      fmt::format("{} is the database {} itself: serve another file", file, url.text()));
}

Kavra::Claim claimOf(const std::string& file, const std::string& prefix) {
  Kavra::Claim claim{hostName(), bootId(), wholeName(file), {}};
  if (!prefix.empty()) claim.places.insert(prefix);
  return claim;
}

}  // namespace

void serve(const Kavra::StoreUrl& url, const std::string& file, const std::string& prefix,
           const Qel::Ptr<Qel::Clock const>& clock, std::ostream& err) {
  needAnotherFile(url, file);
  url.tellIfNotEncrypted();
  Qel::PollEventLoop loop;
  const EndOnSignal endOnSignal(loop);
  Qel::ServiceManager manager(loop);
  const auto source = Kavra::StoreUrl("file:" + file).feed(loop, clock);
  std::error_code error;
  if (!std::filesystem::exists(file, error)) {
    err << "kavra: " << Qel::printableLine(file) << " is not there yet: waiting for it"
        << std::endl;
  }
  const auto publisher =
      Qel::make<Kavra::Publisher>(source, url.store(clock), loop, claimOf(file, prefix));
  manager.readyIs("publishes " + file + " in " + url.text());
  loop.run();
}

}  // namespace Tools
