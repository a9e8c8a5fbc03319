#include "host/ReloadCauses.h"

#include <string_view>

namespace Host {
namespace {

// FNV-1a. It has to tell one state from the next, and keeps nobody out.
class Digest {
 public:
  void add(std::string_view octets) {
    for (const char octet : octets) {
      value_ = (value_ ^ static_cast<unsigned char>(octet)) * 0x100000001b3U;
    }
  }
  // Numbers set apart what is of any length.
  void add(std::uint64_t number) {
    for (int bits = 0; bits < 64; bits += 8) {
      value_ = (value_ ^ ((number >> bits) & 0xffU)) * 0x100000001b3U;
    }
  }
  std::uint64_t value() const { return value_; }

 private:
  std::uint64_t value_ = 0xcbf29ce484222325U;
};

// As a row of the table tells it.
U32 shownTime(double seconds) {
  constexpr double kEnd = 9223372036854775808.0;  // 2^63: what fits alone can be converted
  if (!(seconds >= -kEnd && seconds < kEnd)) return 0;
  return static_cast<U32>(static_cast<std::int64_t>(seconds));
}

}  // namespace

ReloadCauses reloadCausesOf(U32 unit, const System::ResetInstance& reload) {
  ReloadCauses causes;
  causes.unit = unit;
  Digest digest;
  std::size_t room = kMostCauseOctets;
  for (auto cause = reload.causeQ().iteratorConst(); cause; ++cause) {
    const std::string_view description = cause.value().description().view();
    const U32 time = shownTime(cause.value().time());
    digest.add(std::uint64_t{description.size()});
    digest.add(description);
    digest.add(std::uint64_t{time});
    const std::size_t octets = description.size() + kCauseOverhead;
    const bool isNext = causes.first.size() == causes.count;  // none was left out before
    if (isNext && octets <= room) {
      room -= octets;
      causes.first.push_back({std::string(description), time});
    }
    ++causes.count;
  }
  causes.digest = digest.value();
  return causes;
}

}  // namespace Host
