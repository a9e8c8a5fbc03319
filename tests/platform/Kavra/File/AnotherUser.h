#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "platform/Kavra/DatabaseDirectory.h"

namespace kavratest {

// Who may not do everything: while it lives, the test acts as a user without rights of root, where
// it has them. One at a time.
class AnotherUser {
 public:
  static constexpr uid_t kId = 12345;
  static constexpr gid_t kGroup = 23456;

  AnotherUser() {
    if (!isRoot_) return;
    EXPECT_EQ(::setegid(kGroup), 0);
    EXPECT_EQ(::seteuid(kId), 0);
  }
  AnotherUser(const AnotherUser&) = delete;
  AnotherUser& operator=(const AnotherUser&) = delete;
  ~AnotherUser() {
    if (!isRoot_) return;
    EXPECT_EQ(::seteuid(0), 0);
    EXPECT_EQ(::setegid(0), 0);
  }

  static int chmod(const std::string& path, mode_t mode) { return ::chmod(path.c_str(), mode); }

 private:
  const bool isRoot_ = ::geteuid() == 0;
};

// Gives a folder and its file to that user, where root can.
inline void letAnotherUserIn(const DatabaseDirectory& directory) {
  if (::geteuid() != 0) return;
  for (const auto& path : {directory.path().string(), directory.file()}) {
    if (!std::filesystem::exists(path)) continue;
    EXPECT_EQ(::chown(path.c_str(), AnotherUser::kId, AnotherUser::kGroup), 0);
  }
}

}  // namespace kavratest
