#pragma once

#include <memory>

#include "Kavra/FileDescriptor.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "host/NetSnmpEventLoop.h"
#include "host/snmpd-module/Directives.h"

namespace Host {

// The table inside somebody else's snmpd, from loading to unloading: the same databases, plug-in
// and status socket as in norvek-snmpd, on snmpd's own loop.
//
// snmpd reads its configuration as root, then may become a daemon, and drops its rights. So nothing
// is opened, made or begun before the first pass of its loop, which comes before the first request;
// by then all lines are read. What cannot be obeyed is logged, and nothing is served. The end
// leaves nothing registered with snmpd. One a process at a time.
class SnmpdModule {
 public:
  SnmpdModule();
  SnmpdModule(const SnmpdModule&) = delete;
  SnmpdModule& operator=(const SnmpdModule&) = delete;
  ~SnmpdModule();

 private:
  struct Served;

  void handleFirstPass();

  const Directives directives_;
  NetSnmpEventLoop loop_;
  const Kavra::FileDescriptor event_;  // readable from the start
  Qel::Ptr<Qel::EventWatch> firstPass_;
  std::unique_ptr<Served> served_;
};

}  // namespace Host
