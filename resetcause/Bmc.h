#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "resetcause/Findings.h"
#include "resetcause/Root.h"
#include "resetcause/Verdict.h"

namespace ResetCause {

// A controller that answers, and refuses.
class RefusalException : public SourceException {
 public:
  // The completion code of its reply.
  explicit RefusalException(std::uint8_t code);
  ~RefusalException() override;

  // Whether it does not know the command: the standard leaves some to the maker.
  bool isUnknownCommand() const noexcept { return code_ == 0xc1; }

 private:
  std::uint8_t code_;
};

// A management controller (BMC, IPMI 2.0) that can be asked.
class Bmc {
 public:
  Bmc() = default;
  Bmc(const Bmc&) = delete;
  Bmc& operator=(const Bmc&) = delete;
  virtual ~Bmc() = default;

  // The octets of its reply, after its completion code, which is 0. Raises RefusalException where
  // the code is another, SourceException where there is no reply in time.
  virtual std::string reply(std::uint8_t function, std::uint8_t command, std::string_view data) = 0;
};

// A record of its event log (SEL).
struct SelRecord {
  std::uint16_t id = 0;
  std::uint16_t next = 0;   // of the record behind it; 0xffff for none
  std::uint32_t time = 0;   // seconds since 1970 by its own clock, or since that started
  bool isWatchdog = false;  // its watchdog reset or switched off the machine

  // Whether its clock had been set.
  bool hasTime() const noexcept { return time > 0x20000000; }

  friend bool operator==(const SelRecord&, const SelRecord&) = default;
};

// Each reads the reply to the command of its name. Raises SourceException for one that is too
// short.
SelRecord readSelEntry(std::string_view reply);
// What it says of the last restart; empty where nothing is known.
std::string readRestartCause(std::string_view reply);
// Why power was lost last; empty where it was not, or was switched off in order.
std::string readChassisStatus(std::string_view reply);

// Asks the controller for everything that it knows of the reload; a command that it does not know
// tells nothing.
void askBmc(Bmc& bmc, const std::string& place, const Boots& boots, Findings& findings);

}  // namespace ResetCause
