#pragma once

#include "Qel/String.h"

namespace Qel {

// A kind of message that a module may write to the system log: its name, syslog severity (0 is the
// most severe), text and advice. Lives as long as its module.
class LogHandle {
 public:
  LogHandle(const String& name, int severity, const String& format, const String& explanation,
            const String& recommendation, double rateLimitInterval, double rateLimitBurst,
            int flags);

  const String& name() const noexcept { return name_; }
  int severity() const noexcept { return severity_; }
  const String& format() const noexcept { return format_; }
  const String& explanation() const noexcept { return explanation_; }
  const String& recommendation() const noexcept { return recommendation_; }
  // Seconds over which messages are counted, and how many of them one interval lets pass.
  double rateLimitInterval() const noexcept { return rateLimitInterval_; }
  double rateLimitBurst() const noexcept { return rateLimitBurst_; }
  int flags() const noexcept { return flags_; }

 private:
  const String name_;
  const int severity_;
  const String format_;
  const String explanation_;
  const String recommendation_;
  const double rateLimitInterval_;
  const double rateLimitBurst_;
  const int flags_;
};

}  // namespace Qel
