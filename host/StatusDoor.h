#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "Kavra/FileDescriptor.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "host/Options.h"

namespace Host {

// Where agents have their status sockets by default, one a cell.
constexpr char kStatusFolder[] = "/run/norvek/";

// A Unix socket that tells whoever connects one text, and closes.
//
// It waits for nobody: what the kernel does not take at once is not sent, and whoever reads slowly
// or not at all reads from the kernel. Owner and group of the socket may connect. A socket that an
// ended process left behind is replaced, that of a running one never.
class StatusDoor {
 public:
  using Text = std::function<std::string()>;

  // `loop` must outlive the door. Raises StartError naming the path.
  StatusDoor(const std::string& path, Qel::EventLoop& loop, Text text);
  StatusDoor(const StatusDoor&) = delete;
  StatusDoor& operator=(const StatusDoor&) = delete;
  ~StatusDoor();

 private:
  void listen();
  void pause();
  void answerOne();

  const std::string path_;
  Qel::EventLoop& loop_;
  const Text text_;
  const Kavra::FileDescriptor socket_;
  const std::pair<dev_t, ino_t> file_;
  Qel::Ptr<Qel::EventWatch> watch_;  // for who connects, or for the next attempt to listen
};

// The door that the options ask for, or the default one; null where that cannot be had, which is
// logged unless its folder is not there or not to be written in. Raises StartError for the former.
std::unique_ptr<StatusDoor> statusDoorOf(const Options& options, Qel::EventLoop& loop,
                                         StatusDoor::Text text);

}  // namespace Host
