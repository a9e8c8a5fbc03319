#pragma once

#include <algorithm>
#include <random>

namespace Kavra {

// How long to wait before the next attempt to connect: a random part ("full jitter") of a time that
// grows from 0.1 s to 5 s.
//
// It grows by a tenth each time, so that after an outage of t seconds it stands near 0.2 t: who was
// away for a moment is found again at once, and nobody is asked more than 20 times a second.
class BackOff {
 public:
  static constexpr double kLeast = 0.1;
  static constexpr double kMost = 5.0;
  static constexpr double kGrowth = 1.1;

  // Seconds until the next attempt.
  double next() {
    const double seconds = std::uniform_real_distribution(0.0, most_)(engine_);
    most_ = std::min(most_ * kGrowth, kMost);
    return seconds;
  }
  void reset() noexcept { most_ = kLeast; }

 private:
  double most_ = kLeast;
  std::minstd_rand engine_{std::random_device()()};
};

}  // namespace Kavra
