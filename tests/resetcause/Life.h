#pragma once

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "resetcause/Machine.h"
#include "support/Random.h"

namespace resetcausetest {

// What may be told of a reload.
struct Told {
  std::set<std::string> first;   // rules, one of which is to name the cause
  std::set<std::string> beside;  // rules that may stand beside it
};

// The life of a machine over many reloads. What each left lies about; whoever goes down at once
// takes with it what was not on the disk yet; clocks are wrong for a while, or never set; some
// boots end before they are judged; the journal, wtmp and the heartbeat are lost now and then.
//
// Seconds are those since the start of the boot that runs, where nothing else is said.
class Life {
 public:
  // The same for the same seed.
  explicit Life(unsigned seed);

  // Goes down, starts again, and is judged, most often: then it is to tell this reload by what may
  // be told of it, by texts that have its tag(), and a time that fits.
  void reloads(const std::function<void()>& goesDown, const Told& told);

  // When the boot that runs goes down.
  double down() const { return down_; }
  bool isLikely(double share) { return between(0, 1) < share; }
  std::size_t below(std::size_t limit) { return dice_.below(static_cast<unsigned>(limit)); }
  // For all texts of this reload, and for those of no other.
  std::string tag() const;

  // What the boot that runs may leave.
  void says(double seconds, const std::string& message, const Machine::Fields& fields = {});
  void initSays(double seconds, const std::string& message);
  void loginManagerSays(double seconds, const std::string& way, const std::string& message);
  void unitFails(double seconds);
  void powerKeyIsPressed(double seconds);
  void isRequested(double seconds);
  void requestIsTakenBack();
  void dumps(double seconds, const std::string& text);
  // Somebody asked for a reboot, with a text.
  void isToReboot();
  void endsInOrder(const std::string& target = "reboot.target");
  void panics();
  void watchdogExpires() { watchdog_ = 0x20; }
  // The next boot starts without a reset of the hardware.
  void keepsRegisters() { isKexec_ = true; }
  // It goes down all at once. Of what is said from now on only that of long ago is kept.
  void losesTheLast();

 private:
  double between(double least, double most);
  double clock() const { return now_ + ahead_; }
  void runs();
  void beats();
  void losesSomething();
  void expects(const Told& told);
  void forgets();
  void setsClock();
  void startsAgain();
  void movesDumps() const;
  void isJudged();
  void comparesTexts(const ResetCause::Cause& cause) const;
  void comparesTimes(const ResetCause::Cause& cause) const;

  support::Random dice_;
  Machine machine_;
  std::vector<ResetCause::WtmpRecord> wtmp_;
  int reload_ = 0;
  double now_ = kThisStart;  // in truth
  double ahead_ = 0;         // of the machine's clock
  bool isUnset_ = false;     // its clock starts in 1970 each time
  bool hasSetClock_ = false;

  // The boot that runs.
  std::string boot_ = kThis;
  double start_ = kThisStart;  // by its clock
  double down_ = 0;
  double written_ = 0;  // until when what it says comes to the disk
  bool wasJudged_ = false;
  bool leavesJournal_ = true;
  bool leavesBeat_ = false;
  std::string last_ = kBefore;  // the last boot before it of which there is something
  // What the hardware tells the next one.
  unsigned watchdog_ = 0;
  bool isKexec_ = false;

  // Of the reload, and of those before it that nobody has told of yet.
  Told told_;
  std::set<std::string> tags_;
  std::vector<double> ends_;  // when it was, by the clocks then
};

}  // namespace resetcausetest
