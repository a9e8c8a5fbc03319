#pragma once

#include <string>

namespace Host {

// net-snmp's messages, taken to the process's log, a line each.
class NetSnmpLog {
 public:
  // While one lives, nothing is logged, and the first warning or error is kept for somebody who
  // makes a better message of it. Of nested captures, the innermost keeps.
  class Capture {
   public:
    Capture() noexcept;
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;
    ~Capture();

    // The message kept, or "".
    const std::string& first() const noexcept { return first_; }

   private:
    friend class NetSnmpLog;

    Capture* const outer_;
    std::string first_;
  };

  // Takes the messages from now to snmp_shutdown.
  static void start();

 private:
  static int take(int major, int minor, void* message, void* unused);

  static Capture* capture_;
};

}  // namespace Host
