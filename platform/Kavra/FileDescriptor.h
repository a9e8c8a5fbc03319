#pragma once

#include <utility>

namespace Kavra {

// Owns an open descriptor, or none (-1).
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) noexcept : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~FileDescriptor();

  explicit operator bool() const noexcept { return fd_ >= 0; }
  int fd() const noexcept { return fd_; }

 private:
  int fd_ = -1;
};

}  // namespace Kavra
