#pragma once

#include <cstddef>

namespace Qel {

// Base that counts the live objects of type T, those under construction included.
template <class T>
class LiveCount {
 public:
  LiveCount(const LiveCount&) = delete;
  LiveCount& operator=(const LiveCount&) = delete;

  static std::size_t liveCount() noexcept { return count_; }

 protected:
  LiveCount() noexcept { ++count_; }
  ~LiveCount() { --count_; }

 private:
  static inline std::size_t count_ = 0;
};

}  // namespace Qel
