#include "resetcause/StateFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "Kavra/FileContent.h"
#include "Kavra/FileDescriptor.h"
#include "Kavra/Json/Text.h"
#include "resetcause/Root.h"

namespace ResetCause {

namespace {

constexpr std::size_t kMostStateOctets = std::size_t{32} << 20;
constexpr mode_t kReadableByAll = 0644;

std::string folderOf(const std::string& path) {
  return std::filesystem::path(path).parent_path().string();
}

[[noreturn]] void failed(const std::string& path) {
  throw std::system_error(errno, std::generic_category(), path);
}

}  // namespace

std::optional<Qel::Document> readState(const std::string& path) {
  const auto text = contentOf(path, kMostStateOctets);
  if (!text) return std::nullopt;
  return Kavra::Json::read(*text);
}

void writeState(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(folderOf(path));
  std::string beside = path + ".XXXXXX";
  const Kavra::FileDescriptor file(::mkostemp(beside.data(), O_CLOEXEC));
  if (!file) failed(path);
  const bool done = Kavra::store(file, text) && ::fchmod(file.fd(), kReadableByAll) == 0 &&
                    std::rename(beside.c_str(), path.c_str()) == 0 &&
                    Kavra::storeFolder(folderOf(path));
  if (done) return;
  const int error = errno;
  ::unlink(beside.c_str());
  errno = error;
  failed(path);
}

bool removeState(const std::string& path) {
  if (::unlink(path.c_str()) == 0) {
    if (!Kavra::storeFolder(folderOf(path))) failed(path);
    return true;
  }
  if (errno != ENOENT) failed(path);
  return false;
}

}  // namespace ResetCause
