#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "Kavra/FileDescriptor.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"

namespace Kavra::File {

// Calls whenever the file of one name in a directory may have changed: written and closed,
// replaced, linked, renamed away, removed; and when the directory itself goes or is back, for which
// it then looks once a second. Follows the directory's path, not the directory.
//
// The call is made from the event loop and may let go of the watch.
class DirectoryWatch final : public Qel::PtrInterface {
 public:
  // Raises StoreException when the kernel has no watch left, or the loop no room.
  DirectoryWatch(Qel::EventLoop& loop, const std::string& directory, const std::string& name,
                 std::function<void()> call);
  ~DirectoryWatch() override;

 private:
  // False when the directory cannot be watched now.
  bool watch();
  void retryLater();
  void retry();
  void handleReadable();
  // What there is to be read: did it concern the file, did it say that the directory is lost?
  struct Events {
    bool concernFile = false;
    bool loseDirectory = false;
  };
  Events takeEvents();
  bool concernsFile(std::uint32_t event, std::string_view name) const;

  Qel::EventLoop& loop_;
  const std::string directory_;
  const std::string name_;
  const std::function<void()> call_;
  FileDescriptor inotify_;
  Qel::Ptr<Qel::EventWatch> readable_;
  Qel::Ptr<Qel::EventWatch> retry_;
};

}  // namespace Kavra::File
