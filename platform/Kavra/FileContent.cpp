#include "Kavra/FileContent.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace Kavra {

namespace {

constexpr std::size_t kPiece = 65536;

}  // namespace

std::optional<std::string> readUpTo(const FileDescriptor& file, std::size_t most) {
  std::string text;
  for (;;) {
    const std::size_t have = text.size();
    text.resize(std::min(have + kPiece, most + 1));
    const ssize_t count = ::read(file.fd(), text.data() + have, text.size() - have);
    text.resize(have + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (count == 0) return text;
    if (count < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category());
    if (text.size() > most) return std::nullopt;
  }
}

bool store(const FileDescriptor& file, std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t written = ::write(file.fd(), text.data(), text.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
  return ::fsync(file.fd()) == 0;
}

bool storeFolder(const std::string& path) noexcept {
  const FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return folder && ::fsync(folder.fd()) == 0;
}

}  // namespace Kavra
