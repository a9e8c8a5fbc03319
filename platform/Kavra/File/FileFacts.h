#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace Kavra::File {

// By what it is known, without reading it, that a file was changed or is another one.
struct FileFacts {
  int error = 0;  // errno, where there are none
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint64_t size = 0;
  std::int64_t modified = 0;  // nanoseconds since 1970 UTC
  std::int64_t changed = 0;   // the same, rights and names included

  bool isSameFileAs(const FileFacts& other) const noexcept {
    return error == other.error && device == other.device && inode == other.inode;
  }
  friend bool operator==(const FileFacts& a, const FileFacts& b) = default;
};

// How to come by them; may block for as long as it likes.
using FactsCall = std::function<FileFacts(const std::string& path)>;

// Of the file that the path leads to. A network file system asks its server, whatever it remembers.
FileFacts factsOf(const std::string& path);

}  // namespace Kavra::File
