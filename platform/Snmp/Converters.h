#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <string_view>

#include "Qel/String.h"
#include "Qel/Types.h"

// Between the framework's values and those of SNMP varbinds, as net-snmp stores them. Writers
// return the number of octets written, or a negative number, with nothing written, when the value
// has no such form or does not fit the buffer.
namespace Snmp {

// net-snmp keeps every number of a varbind in a long, Unsigned32 among them.
static_assert(std::numeric_limits<long>::max() >= std::numeric_limits<U32>::max());

// Writes octets as they are.
inline int putOctets(const void* octets, std::size_t count, unsigned char* buffer,
                     std::size_t length) {
  if (count > length || count > std::size_t{std::numeric_limits<int>::max()}) return -1;
  std::copy_n(static_cast<const unsigned char*>(octets), count, buffer);
  return static_cast<int>(count);
}

// The octets of the text, as they are.
struct StringToAsnOctetStringF {
  int operator()(const Qel::String& text, unsigned char* buffer, std::size_t length) const {
    const std::string_view octets = text.view();
    return putOctets(octets.data(), octets.size(), buffer, length);
  }
};

// DateAndTime (RFC 2579) of a time in seconds since 1970-01-01 UTC: 11 octets, the offset from UTC
// always +0:0, deciseconds cut off rather than rounded. Negative, infinite and undefined times, and
// years beyond 65535, have no such form.
struct SecondsToAsnDateAndTimeF {
  int operator()(double seconds, unsigned char* buffer, std::size_t length) const;
};

// An Unsigned32 or Gauge32: net-snmp takes and keeps it as a long of the host.
struct U32ToAsnUnsignedF {
  int operator()(U32 value, unsigned char* buffer, std::size_t length) const {
    const unsigned long kept = value;
    return putOctets(&kept, sizeof kept, buffer, length);
  }
};

// Whether an unsigned varbind's value, a long of the host or null, is a number of 32 bits.
inline bool isAsnUnsigned32(const void* value) {
  long kept = -1;
  if (value != nullptr) std::memcpy(&kept, value, sizeof kept);
  return kept >= 0 && kept <= long{std::numeric_limits<U32>::max()};
}

// Raises the Qel::RangeException for a value that is none.
[[noreturn]] void throwNoU32(const void* value);

// The number in an unsigned varbind's value, a long of the host. Raises Qel::RangeException for
// one that is negative or beyond 32 bits, and when there is no value.
inline U32 AsnUnsignedToU32(const void* value) {
  if (!isAsnUnsigned32(value)) throwNoU32(value);
  long kept = 0;
  std::memcpy(&kept, value, sizeof kept);
  return static_cast<U32>(kept);
}

}  // namespace Snmp
