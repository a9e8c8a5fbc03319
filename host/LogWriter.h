#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "Kavra/FileDescriptor.h"

namespace Host {

// Writes whole lines to a descriptor that others may share, and never waits for whoever reads them:
// pipe, socket, terminal or file. The descriptor's own flags stay as they are.
//
// The descriptor may be pointed elsewhere at any time. A line that was taken in part is finished
// before anything else is written.
class LogWriter {
 public:
  // `fd` stays the caller's.
  explicit LogWriter(int fd) noexcept : fd_(fd) {}
  LogWriter(const LogWriter&) = delete;
  LogWriter& operator=(const LogWriter&) = delete;

  // Whether the line, which ends in a line end, was taken; otherwise nothing of it was.
  bool write(std::string_view line);
  // Whether nothing of an earlier line is left to be written.
  bool finish();

 private:
  enum class Kind { file, pipeOrTerminal, socket };

  void lookAtDescriptor();
  // The number of octets that were taken at once.
  std::size_t put(std::string_view text) const;
  std::size_t putInPieces(std::string_view text) const;

  const int fd_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  Kind kind_ = Kind::file;
  Kavra::FileDescriptor own_;  // what fd_ leads to, opened anew so as not to block
  std::string rest_;
};

}  // namespace Host
