#pragma once

#include <cstddef>

#include "Qel/String.h"
#include "Qel/Types.h"

// Between the framework's values and those of SNMP varbinds, as net-snmp stores them. Writers
// return the number of octets written, or a negative number, with nothing written, when the value
// has no such form or does not fit the buffer.
namespace Snmp {

// The octets of the text, as they are.
struct StringToAsnOctetStringF {
  int operator()(const Qel::String& text, unsigned char* buffer, std::size_t length) const;
};

// DateAndTime (RFC 2579) of a time in seconds since 1970-01-01 UTC: 11 octets, the offset from UTC
// always +0:0, deciseconds cut off rather than rounded. Negative, infinite and undefined times, and
// years beyond 65535, have no such form.
struct SecondsToAsnDateAndTimeF {
  int operator()(double seconds, unsigned char* buffer, std::size_t length) const;
};

// An Unsigned32 or Gauge32: net-snmp takes and keeps it as a long of the host.
struct U32ToAsnUnsignedF {
  int operator()(U32 value, unsigned char* buffer, std::size_t length) const;
};

// The number in an unsigned varbind's value, a long of the host. Raises Qel::RangeException for
// one that is negative or beyond 32 bits, and when there is no value.
U32 AsnUnsignedToU32(const void* value);

}  // namespace Snmp
