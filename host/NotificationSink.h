#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <string>

#include "Kavra/AddressLookup.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "host/NetSnmp.h"
#include "host/Notification.h"
#include "host/NotificationChannel.h"
#include "host/SinkLine.h"

namespace Host {

// A sink of notifications, as this agent's configuration names it: a session of net-snmp's.
//
//         something to send, a name         its address          of a v3 inform
//   idle ---------------------------> resolving ----> (opened) -----------------> discovering
//    ^  \                                                 |                            |
//    |   `-- something to send, a number -> (opened) -----+---> ready <----------------+
//    |                                                             |       its engine id
//    +----------- waiting <-------- any failure of these ----------+
//
//   resolving    looks up the name of the sink's host, on a thread beside, for 5 s at most
//   discovering  asks an inform's receiver for its engine id, as often and long as -r and -t say
//   ready        sends; of informs one at a time, which net-snmp repeats, until it is acknowledged
//                or given up
//   waiting      a growing pause, of a minute at most, before all of it is tried again
//
// Nothing waits in a call. What is to be sent is kept meanwhile, of notifications about the same
// the last one; an inform that was given up is kept, too, unless there is a later one. A name is
// looked up again after ten minutes.
class NotificationSink {
 public:
  // Since the sink is known; counted as sent is each notification, not its repetitions.
  struct Counts {
    std::uint64_t sent = 0;
    std::uint64_t acknowledged = 0;
    std::uint64_t givenUp = 0;
  };

  // `loop` must outlive the sink, and net-snmp must, too. The call may come from inside send().
  NotificationSink(SinkLine line, Qel::EventLoop& loop, NotificationChannel::Delivered delivered);
  NotificationSink(const NotificationSink&) = delete;
  NotificationSink& operator=(const NotificationSink&) = delete;
  ~NotificationSink();

  const SinkLine& line() const { return line_; }
  const Counts& counts() const { return counts_; }
  // Why nothing gets through, or nothing: it is known of a failure alone.
  const std::string& problem() const { return problem_; }
  std::size_t kept() const { return kept_.size() + (awaited_ ? 1 : 0); }

  void send(const Notification& notification);
  // Begins anew: net-snmp has forgotten the sink's user.
  void reopen();

 private:
  enum class Step { idle, resolving, discovering, ready, waiting };

  void proceed();
  void lookUp();
  void handleAddresses();
  void open(const std::string& number);
  netsnmp_session* newSession(const std::string& number);
  void discover();
  void sendAll();
  void transmit(Notification notification);
  int sendAwaited(Pdu pdu);
  static int take(int operation, netsnmp_session* session, int request, netsnmp_pdu* pdu,
                  void* sink) noexcept;
  void handleReply(int operation, const netsnmp_pdu* pdu);
  void handleOutcome();
  void handleInform();
  void keepAwaited();
  void fail(const std::string& why);
  void problemIs(const std::string& problem);
  void close();

  const SinkLine line_;
  const in_addr_t version1Address_;
  Qel::EventLoop& loop_;
  const NotificationChannel::Delivered delivered_;
  Kavra::AddressLookup lookup_;

  Step step_ = Step::idle;
  netsnmp_session* session_ = nullptr;
  bool isAnswering_ = false;  // a question or an inform is under way
  // The inform, until what became of it is dealt with; there is no other meanwhile.
  std::optional<Notification> awaited_;
  std::string failure_;  // how it ended, empty for well
  std::map<Notification::About, Notification> kept_;
  Counts counts_;
  std::string problem_;
  double pause_;
  std::minstd_rand random_{std::random_device()()};
  bool isOld_ = false;  // the name should be looked up again
  Qel::Ptr<Qel::EventWatch> answered_;
  Qel::Ptr<Qel::EventWatch> next_;  // the next step's timer
  Qel::Ptr<Qel::EventWatch> ageing_;
};

}  // namespace Host
