#pragma once

#include <netinet/in.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Host {

// What the host-access files of the machine (hosts.allow, hosts.deny) said of a source, kept for a
// while.
//
// The agent library asks them for each packet, and reads them each time. An answer is kept here
// until either file changes, which is looked at kLookInterval apart at most, and until it is kAge
// old: rules may name what lies elsewhere (files of patterns, netgroups). Nothing is kept while a
// rule does more than answer, as `spawn` and `severity` do, nor while a file cannot be read. Of at
// most kMost sources, as a stranger may claim to be any number of them: the oldest answer goes when
// one more comes.
class HostAccess {
 public:
  // An IPv4 address fills the first four octets. Two sources with the same text in a rule's eyes
  // may differ here, never the other way round.
  struct Source {
    sa_family_t family = AF_UNSPEC;
    std::array<std::uint8_t, 16> address{};
    std::uint32_t scope = 0;
    auto operator<=>(const Source&) const = default;
  };

  static constexpr double kLookInterval = 1;  // seconds
  static constexpr double kAge = 5;           // seconds
  static constexpr std::size_t kMost = 256;

  // `monotonic` tells seconds, from any beginning, which never go back.
  HostAccess(std::vector<std::string> files, std::function<double()> monotonic)
      : files_(std::move(files)), monotonic_(std::move(monotonic)) {}

  // What the files say of the source; nothing when they have to be asked, and learned() told. C
  // code calls both: what there is no memory to keep is asked for again.
  std::optional<bool> known(const Source& source) noexcept;
  // The files were asked, after known().
  void learned(const Source& source, bool isAllowed) noexcept;

 private:
  // Of a file: the error that hides it, or where it is, its size, and when it changed.
  using Stamp = std::array<std::int64_t, 8>;
  struct Answer {
    bool isAllowed;
    double until;
  };

  static Stamp stampOf(const std::string& file);
  void look();
  void forgetAll() noexcept;

  const std::vector<std::string> files_;
  const std::function<double()> monotonic_;
  double now_ = 0;
  std::optional<double> looked_;
  std::vector<Stamp> stamps_;
  bool mayKeep_ = false;
  std::map<Source, Answer> answers_;
};

}  // namespace Host
