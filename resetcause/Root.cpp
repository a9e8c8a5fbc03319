#include "resetcause/Root.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "Kavra/FileContent.h"
#include "Kavra/FileDescriptor.h"

namespace ResetCause {

namespace {

constexpr std::size_t kMostNames = 200000;

}  // namespace

SourceException::~SourceException() = default;

Root::Root(std::string folder) : folder_(std::move(folder)) {
  while (folder_.ends_with('/')) folder_.pop_back();
}

std::optional<std::string> contentOf(const std::string& path, std::size_t most) {
  // A pipe in the place of a file would be waited for, and a link may lead to what others may not
  // read.
  const Kavra::FileDescriptor file(
      ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
  if (!file && (errno == ENOENT || errno == ENOTDIR)) return std::nullopt;
  struct stat status {};
  if (!file || ::fstat(file.fd(), &status) != 0) {
    throw std::system_error(errno, std::generic_category());
  }
  if (!S_ISREG(status.st_mode)) throw SourceException("it is no file");
  auto text = Kavra::readUpTo(file, most);
  if (!text) throw SourceException("it is too long");
  return text;
}

std::vector<std::string> namesIn(const std::string& path) {
  std::vector<std::string> names;
  std::error_code error;
  std::filesystem::directory_iterator each(path, error);
  if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) {
    return names;
  }
  for (; !error && each != std::filesystem::directory_iterator(); each.increment(error)) {
    std::string name = each->path().filename().string();
    if (!name.starts_with('.')) names.push_back(std::move(name));
    if (names.size() > kMostNames) throw SourceException("too many names in it");
  }
  if (error) throw std::system_error(error.value(), std::generic_category());
  std::ranges::sort(names);
  return names;
}

std::string inFolder(std::string_view folder, std::string_view name) {
  std::string path(folder);
  path += '/';
  path += name;
  return path;
}

bool isId(std::string_view text) noexcept {
  constexpr std::size_t kIdLength = 32;
  return text.size() == kIdLength &&
         text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

std::string_view trimmed(std::string_view text) noexcept {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

}  // namespace ResetCause
