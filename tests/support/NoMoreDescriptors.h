#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "Kavra/FileDescriptor.h"

namespace support {

// While it lives, the process may open nothing more. Those that are open can still be waited for.
class NoMoreDescriptors {
 public:
  NoMoreDescriptors() {
    EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &before_), 0);
    const Kavra::FileDescriptor next(::dup(STDERR_FILENO));
    const rlimit none = {static_cast<rlim_t>(next.fd()), before_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  }
  NoMoreDescriptors(const NoMoreDescriptors&) = delete;
  NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;
  ~NoMoreDescriptors() { EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &before_), 0); }

 private:
  rlimit before_ = {};
};

}  // namespace support
