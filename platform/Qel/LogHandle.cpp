#include "Qel/LogHandle.h"

namespace Qel {

LogHandle::LogHandle(const String& name, int severity, const String& format,
                     const String& explanation, const String& recommendation,
                     double rateLimitInterval, double rateLimitBurst, int flags)
    : name_(name),
      severity_(severity),
      format_(format),
      explanation_(explanation),
      recommendation_(recommendation),
      rateLimitInterval_(rateLimitInterval),
      rateLimitBurst_(rateLimitBurst),
      flags_(flags) {}

}  // namespace Qel
