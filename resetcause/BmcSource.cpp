#include "resetcause/BmcSource.h"

#include <fcntl.h>
#include <linux/ipmi.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <string>
#include <system_error>
#include <utility>

#include "Kavra/FileDescriptor.h"
#include "resetcause/Bmc.h"

namespace ResetCause {

namespace {

// A controller answers a question in some 20 ms, and may have a log of thousands of records.
constexpr int kReplyMilliseconds = 2000;
constexpr std::chrono::seconds kLongest{20};

class BmcDevice final : public Bmc {
 public:
  explicit BmcDevice(Kavra::FileDescriptor device) : device_(std::move(device)) {}

  std::string reply(std::uint8_t function, std::uint8_t command, std::string_view data) override {
    if (std::chrono::steady_clock::now() > deadline_) throw SourceException("it takes too long");
    std::array<unsigned char, 64> octets{};
    std::ranges::copy(data, octets.begin());
    ipmi_system_interface_addr to{IPMI_SYSTEM_INTERFACE_ADDR_TYPE, IPMI_BMC_CHANNEL, 0};
    ipmi_req request{};
    request.addr = reinterpret_cast<unsigned char*>(&to);
    request.addr_len = sizeof to;
    request.msgid = ++asked_;
    request.msg = {function, command, static_cast<unsigned short>(data.size()), octets.data()};
    if (::ioctl(device_.fd(), IPMICTL_SEND_COMMAND, &request) != 0) fail();
    return received();
  }

 private:
  [[noreturn]] static void fail() { throw std::system_error(errno, std::generic_category()); }

  std::string received() const {
    std::array<unsigned char, 512> octets{};
    for (;;) {
      pollfd ready{device_.fd(), POLLIN, 0};
      if (::poll(&ready, 1, kReplyMilliseconds) <= 0) throw SourceException("it does not answer");
      ipmi_addr from{};
      ipmi_recv answer{};
      answer.addr = reinterpret_cast<unsigned char*>(&from);
      answer.addr_len = sizeof from;
      answer.msg.data = octets.data();
      answer.msg.data_len = octets.size();
      if (::ioctl(device_.fd(), IPMICTL_RECEIVE_MSG_TRUNC, &answer) != 0) fail();
      // An answer to an earlier question came late.
      if (answer.msgid != asked_) continue;
      if (answer.msg.data_len == 0) throw SourceException("an empty reply");
      if (octets[0] != 0) throw RefusalException(octets[0]);
      return {reinterpret_cast<const char*>(octets.data()) + 1,
              answer.msg.data_len - std::size_t{1}};
    }
  }

  const Kavra::FileDescriptor device_;
  const std::chrono::steady_clock::time_point deadline_ =
      std::chrono::steady_clock::now() + kLongest;
  long asked_ = 0;
};

bool isDevice(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISCHR(status.st_mode);
}

}  // namespace

void BmcSource::look(const Boots& boots, Findings& findings) const {
  const std::string path = root_.path("/dev/ipmi0");
  if (!root_.isThisMachine() && isDevice(path)) return;
  findings.attempt(name(), path, [&] {
    Kavra::FileDescriptor device(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
    if (!device && errno == ENOENT) return;
    if (!device) throw std::system_error(errno, std::generic_category());
    BmcDevice bmc(std::move(device));
    askBmc(bmc, path, boots, findings);
  });
}

}  // namespace ResetCause
