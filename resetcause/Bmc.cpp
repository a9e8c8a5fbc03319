#include "resetcause/Bmc.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <utility>

#include "Qel/Number.h"

namespace ResetCause {

namespace {

// Network functions and commands, as IPMI numbers them.
constexpr std::uint8_t kChassis = 0x00;
constexpr std::uint8_t kGetChassisStatus = 0x01;
constexpr std::uint8_t kGetRestartCause = 0x07;
constexpr std::uint8_t kStorage = 0x0a;
constexpr std::uint8_t kGetSelInfo = 0x40;
constexpr std::uint8_t kGetSelEntry = 0x43;

constexpr std::uint16_t kFirstRecord = 0x0000;
constexpr std::uint16_t kNoRecord = 0xffff;
constexpr std::uint16_t kNewestRecord = 0xffff;  // where one is asked for
constexpr std::size_t kMostSelRecords = 4096;
constexpr char kLastRecord[] = "sel ";
constexpr char kNone[] = "none";
// Clocks of controllers are a little off.
constexpr double kClockSlack = 120;  // seconds

std::uint8_t octet(std::string_view reply, std::size_t at) {
  if (at >= reply.size()) throw SourceException("a reply is too short");
  return static_cast<std::uint8_t>(reply[at]);
}

std::uint16_t word(std::string_view reply, std::size_t at) {
  return static_cast<std::uint16_t>(octet(reply, at) | octet(reply, at + 1) << 8);
}

SelRecord selRecord(Bmc& bmc, std::uint16_t id) {
  const std::array<char, 6> request{
      0, 0, static_cast<char>(id & 0xff), static_cast<char>(id >> 8), 0, static_cast<char>(0xff)};
  return readSelEntry(bmc.reply(kStorage, kGetSelEntry, {request.data(), request.size()}));
}

std::string lastMark(const SelRecord& record) {
  return fmt::format("{}{} {}", kLastRecord, record.id, record.time);
}

// Where the records begin that were not there when an earlier boot was judged: behind the last one
// of then. Null where nothing tells, since that one is gone.
std::optional<std::uint16_t> firstUnseen(Bmc& bmc, const Findings& findings) {
  const auto known = findings.knownAfter(kLastRecord);
  if (known == kNone) return kFirstRecord;
  const auto id =
      known ? Qel::numberOf<std::uint16_t>(known->substr(0, known->find(' '))) : std::nullopt;
  if (!id) return std::nullopt;
  try {
    const SelRecord record = selRecord(bmc, *id);
    if (lastMark(record) == kLastRecord + *known) return record.next;
  } catch (const SourceException&) {
    // There is no such record any more.
  }
  return std::nullopt;
}

class EventLog {
 public:
  EventLog(Bmc& bmc, const std::string& place, const Boots& boots, Findings& findings)
      : bmc_(bmc), place_(place), boots_(boots), findings_(findings) {}

  void read() {
    if (word(bmc_.reply(kStorage, kGetSelInfo, {}), 1) == 0) {
      findings_.isNew(std::string(kLastRecord) + kNone);
      return;
    }
    // First, since a long log may not be read in time.
    const SelRecord newest = selRecord(bmc_, kNewestRecord);
    if (!findings_.isNew(lastMark(newest))) return;
    const auto unseen = firstUnseen(bmc_, findings_);
    areAllNew_ = unseen && findings_.wasKnown(judgedMark(boots_.previousId));
    consider(newest);
    std::uint16_t id = unseen.value_or(kFirstRecord);
    for (std::size_t count = 0; id != kNoRecord && count < kMostSelRecords; ++count) {
      const SelRecord record = selRecord(bmc_, id);
      if (record.id == newest.id) return;
      consider(record);
      // One that names itself, or the first, would have no end.
      if (record.next == kFirstRecord || record.next == record.id) return;
      id = record.next;
    }
  }

 private:
  void consider(const SelRecord& record) {
    if (record.isWatchdog && isOfThisReload(record)) add(record);
  }
  bool isOfThisReload(const SelRecord& record) const {
    if (areAllNew_) return true;
    return record.hasTime() &&
           (boots_.cover(record.time) || boots_.cover(record.time - kClockSlack));
  }
  void add(const SelRecord& record) {
    Evidence one{Kind::bmcWatchdog, "bmc", fmt::format("{}, record {}", place_, record.id),
                 "the controller's watchdog reset the machine"};
    // A clock of its own may stand anywhere.
    if (record.hasTime() && boots_.cover(record.time)) one.time = record.time;
    findings_.add(std::move(one));
  }

  Bmc& bmc_;
  const std::string place_;
  const Boots& boots_;
  Findings& findings_;
  bool areAllNew_ = false;  // those that are read were not there when the boot before was judged
};

// What has no time of its own: it stays until the controller has something new to tell.
void addRegister(const std::string& what, const std::string& text, const std::string& place,
                 Findings& findings) {
  const bool wasAsked = !findings.isNew("bmc asked for its " + what);
  if (text.empty()) return;
  const bool isNew = findings.isNew("bmc " + text) && wasAsked;
  Evidence one{Kind::bmcRestart, "bmc", place, text};
  one.isOld = !isNew;
  findings.add(std::move(one));
}

}  // namespace

RefusalException::RefusalException(std::uint8_t code)
    : SourceException(Qel::String(fmt::format("it refuses with {:#04x}", code))), code_(code) {}
RefusalException::~RefusalException() = default;

SelRecord readSelEntry(std::string_view reply) {
  constexpr std::uint8_t kSystemEvent = 0x02;
  constexpr std::uint8_t kWatchdog2 = 0x23;
  constexpr std::uint8_t kAsserted = 0x6f;
  constexpr std::uint8_t kHardReset = 1;
  constexpr std::uint8_t kPowerCycle = 3;
  SelRecord record{word(reply, 2), word(reply, 0)};
  record.time = word(reply, 5) | static_cast<std::uint32_t>(word(reply, 7)) << 16;
  const unsigned event = octet(reply, 15) & 0x0fU;
  record.isWatchdog = octet(reply, 4) == kSystemEvent && octet(reply, 12) == kWatchdog2 &&
                      octet(reply, 14) == kAsserted && event >= kHardReset && event <= kPowerCycle;
  return record;
}

std::string readRestartCause(std::string_view reply) {
  constexpr std::array<const char*, 12> kCauses{"",
                                                "Reset by command to the BMC",
                                                "Reset button pressed (BMC)",
                                                "Power button pressed (BMC)",
                                                "Watchdog of the BMC expired",
                                                "Reset for the maker's own reason (BMC)",
                                                "Power lost, then restored (BMC)",
                                                "Power lost, then restored (BMC)",
                                                "Reset by an event filter of the BMC",
                                                "Power cycled by an event filter of the BMC",
                                                "Soft reset (BMC)",
                                                "Started by the real-time clock (BMC)"};
  const std::size_t cause = octet(reply, 0) & 0x0fU;
  return cause < kCauses.size() ? kCauses[cause] : "";
}

std::string readChassisStatus(std::string_view reply) {
  const unsigned event = octet(reply, 1);
  if ((event & 0x01U) != 0) return "Mains power lost (BMC)";
  if ((event & 0x02U) != 0) return "Power lost: overload (BMC)";
  if ((event & 0x04U) != 0) return "Power lost: interlock (BMC)";
  return (event & 0x08U) != 0 ? "Power lost: fault (BMC)" : "";
}

void askBmc(Bmc& bmc, const std::string& place, const Boots& boots, Findings& findings) {
  const auto attempt = [&](const char* what, const std::function<void()>& step) {
    findings.attempt("bmc", place + ", " + what, [&] {
      try {
        step();
      } catch (const RefusalException& refusal) {
        if (!refusal.isUnknownCommand()) throw;
      }
    });
  };
  attempt("event log", [&] { EventLog(bmc, place, boots, findings).read(); });
  attempt("restart cause", [&] {
    addRegister("restart cause", readRestartCause(bmc.reply(kChassis, kGetRestartCause, {})), place,
                findings);
  });
  attempt("power event", [&] {
    addRegister("power event", readChassisStatus(bmc.reply(kChassis, kGetChassisStatus, {})), place,
                findings);
  });
}

}  // namespace ResetCause
