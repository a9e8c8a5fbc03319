#include "Kavra/FileContent.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

namespace Kavra {

namespace {

constexpr std::size_t kPiece = 65536;

// False with errno.
bool writeAll(const FileDescriptor& file, std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t written = ::write(file.fd(), text.data(), text.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

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
  return writeAll(file, text) && ::fsync(file.fd()) == 0;
}

bool replaceWith(const FileDescriptor& newFile, const std::string& newPath, std::string_view text,
                 const std::string& path, Durable durable) noexcept {
  const bool isWritten = durable == Durable::now ? store(newFile, text) : writeAll(newFile, text);
  if (isWritten && std::rename(newPath.c_str(), path.c_str()) == 0) return true;
  const int error = errno;
  ::unlink(newPath.c_str());
  errno = error;
  return false;
}

bool replaceFile(const std::string& path, std::string_view text, Durable durable) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW;
  constexpr mode_t kReadableByAll = 0644;
  const std::string newPath = path + ".new";
  const FileDescriptor file(::open(newPath.c_str(), kFlags, kReadableByAll));
  return file && replaceWith(file, newPath, text, path, durable);
}

bool storeFolder(const std::string& path) noexcept {
  const FileDescriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return folder && ::fsync(folder.fd()) == 0;
}

}  // namespace Kavra
