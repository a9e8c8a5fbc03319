#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "Kavra/File/DirectoryWatch.h"
#include "Kavra/File/FileObserver.h"

namespace kavratest {

// A kernel that has no watch left for a directory, until it has one.
class FewWatches {
 public:
  static constexpr auto kProblem = "directory cannot be watched: none is left";

  Kavra::File::WatchCall call() const {
    return [isLeft = isLeft_](const std::string& directory, const std::string& name) {
      if (!*isLeft) throw Kavra::File::NoWatchLeft(kProblem);
      return Kavra::File::DirectoryWatch(directory, name);
    };
  }
  void oneIsLeft() { *isLeft_ = true; }

 private:
  // Whoever asks may outlive the test.
  const std::shared_ptr<std::atomic<bool>> isLeft_ = std::make_shared<std::atomic<bool>>(false);
};

}  // namespace kavratest
