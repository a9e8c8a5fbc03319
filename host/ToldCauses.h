#pragma once

#include <string>

#include "host/ReloadNews.h"

namespace Host {

// What was told of each unit last, on disk: "UNIT DIGEST", a line each.
//
// Not on the disk before a call returns, which would hold up everybody: after a power cut the file
// may be older than it was.
class ToldCauses {
 public:
  // Without a name nothing is kept.
  explicit ToldCauses(std::string file) : file_(std::move(file)) {}

  // What the file holds; nothing where there is none, or one that cannot be read, which is logged.
  ReloadNews::Told read();
  // From now on the file holds this, too. Logs that it cannot be written, once an outage.
  void toldIs(U32 unit, ReloadNews::Digest digest);

 private:
  void problemIs(const std::string& problem, const char* outcome);

  const std::string file_;
  ReloadNews::Told told_;
  std::string problem_;
};

}  // namespace Host
