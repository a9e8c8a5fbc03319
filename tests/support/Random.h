#pragma once

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>

namespace support {

// Steps that a random test makes: `usual` unless the environment says otherwise. A long run is had
// by MISCSNMP_RANDOM_STEPS, their number; where instrumented code is slow, MISCSNMP_RANDOM_MOST
// bounds it.
inline int randomSteps(int usual) {
  const auto numberOf = [](const char* variable, int otherwise) {
    const char* text = std::getenv(variable);
    return text == nullptr ? otherwise : std::stoi(text);
  };
  return std::min(numberOf("MISCSNMP_RANDOM_STEPS", usual),
                  numberOf("MISCSNMP_RANDOM_MOST", std::numeric_limits<int>::max()));
}

// A run of random choices. The seed is a new one each time, or that of MISCSNMP_RANDOM_SEED; a
// test prints replay() before it starts.
class Random {
 public:
  Random() : Random(seedOr(std::random_device()())) {}
  explicit Random(unsigned seed) : seed_(seed), engine_(seed_) {}

  unsigned seed() const noexcept { return seed_; }
  std::string replay() const { return "repeat with MISCSNMP_RANDOM_SEED=" + std::to_string(seed_); }
  // That of MISCSNMP_RANDOM_SEED, or another.
  static unsigned seedOr(unsigned otherwise) {
    const char* seed = std::getenv("MISCSNMP_RANDOM_SEED");
    return seed == nullptr ? otherwise : static_cast<unsigned>(std::stoul(seed));
  }
  // A number from 0 to `limit` - 1.
  unsigned below(unsigned limit) { return std::uniform_int_distribution(0U, limit - 1)(engine_); }

 private:
  const unsigned seed_;
  std::mt19937 engine_;
};

}  // namespace support
