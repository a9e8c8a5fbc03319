#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace support {

// How many descriptors this process has open.
inline std::ptrdiff_t openDescriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return std::distance(begin(descriptors), end(descriptors));
}

}  // namespace support
