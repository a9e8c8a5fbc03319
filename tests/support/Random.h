#pragma once

#include <cstdlib>
#include <random>
#include <string>

namespace support {

// Steps that a random test makes: `usual` unless the environment variable MISCSNMP_RANDOM_STEPS
// gives another number, as it does where instrumented code is slow or a long run is wanted.
inline int randomSteps(int usual) {
  const char* steps = std::getenv("MISCSNMP_RANDOM_STEPS");
  return steps == nullptr ? usual : std::stoi(steps);
}

// A run of random choices. The seed is a new one each time, or that of MISCSNMP_RANDOM_SEED; a
// test prints replay() before it starts.
class Random {
 public:
  Random() : seed_(seedOfRun()), engine_(seed_) {}

  unsigned seed() const noexcept { return seed_; }
  std::string replay() const { return "repeat with MISCSNMP_RANDOM_SEED=" + std::to_string(seed_); }
  // A number from 0 to `limit` - 1.
  unsigned below(unsigned limit) { return std::uniform_int_distribution(0U, limit - 1)(engine_); }

 private:
  static unsigned seedOfRun() {
    const char* seed = std::getenv("MISCSNMP_RANDOM_SEED");
    return seed == nullptr ? std::random_device()() : static_cast<unsigned>(std::stoul(seed));
  }

  const unsigned seed_;
  std::mt19937 engine_;
};

}  // namespace support
