#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Kavra/FileDescriptor.h"
#include "Kavra/Store.h"

namespace Kavra::File {

// A directory that cannot be watched because the kernel has none left to give, as it may have
// later.
class NoWatchLeft : public StoreException {
 public:
  using StoreException::StoreException;
  ~NoWatchLeft() override;
};

// Knows when the file of one name in a directory may have changed: written and closed, replaced,
// linked, renamed away, removed.
//
// Watches the directory that was there when it was made, not the directory's path. A watch that is
// lost, because the directory went or was moved, stays so. Used by one thread at a time; making one
// and asking it may block for as long as the file system does.
class DirectoryWatch {
 public:
  // Raises StoreException when the directory cannot be watched, NoWatchLeft where that is for want
  // of instances or watches of inotify, or of memory.
  DirectoryWatch(const std::string& directory, const std::string& name);

  const std::string& directory() const noexcept { return directory_; }
  const std::string& name() const noexcept { return name_; }
  // Can be read from when there are events.
  int fd() const noexcept { return inotify_.fd(); }

  // What happened since the last call.
  struct Events {
    bool concernFile = false;
    bool loseDirectory = false;
  };
  Events takeEvents();

 private:
  bool concernsFile(std::uint32_t event, std::string_view name) const;

  std::string directory_;
  std::string name_;
  FileDescriptor inotify_;
};

}  // namespace Kavra::File
