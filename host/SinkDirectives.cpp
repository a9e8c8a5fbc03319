#include "host/SinkDirectives.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <exception>
#include <stdexcept>

#include "host/NetSnmp.h"

namespace Host {
namespace {

constexpr const char* kSinkDirectives[] = {"trapsink", "trap2sink",     "informsink",
                                           "trapsess", "trapcommunity", "v1trapaddress"};
constexpr auto kUsualCommunity = "public";

std::string lowerCase(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char letter) {
    return static_cast<char>(std::tolower(letter));
  });
  return text;
}

in_addr_t addressOf(const std::string& typed) {
  in_addr address{};
  if (::inet_pton(AF_INET, typed.c_str(), &address) != 1) {
    throw std::invalid_argument(fmt::format("{}: not an IPv4 address in numbers", typed));
  }
  return address.s_addr;
}

}  // namespace

SinkDirectives* SinkDirectives::present_ = nullptr;

SinkDirectives::SinkDirectives() : community_(kUsualCommunity) { present_ = this; }

SinkDirectives::~SinkDirectives() { present_ = nullptr; }

void SinkDirectives::listen() {
  if (present_ == nullptr) return;
  const char* own = netsnmp_ds_get_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_APPTYPE);
  for (const char* directive : kSinkDirectives) {
    // Of two registrations of a name, the later one stands.
    register_config_handler(own, directive, &SinkDirectives::take, &SinkDirectives::forget,
                            nullptr);
  }
}

std::vector<SinkLine> SinkDirectives::sinks() const {
  auto sinks = sinks_;
  for (SinkLine& sink : sinks) {  // wherever the address stood
    if (sink.command == SNMP_MSG_TRAP) sink.version1Address = version1Address_;
  }
  return sinks;
}

void SinkDirectives::take(const char* directive, char* value) {
  if (present_ == nullptr) return;
  try {
    present_->read(lowerCase(directive), value);
  } catch (const std::exception& error) {
    config_perror(fmt::format("{}: {}", directive, error.what()).c_str());
  }
}

void SinkDirectives::forget() {
  if (present_ == nullptr) return;
  present_->sinks_.clear();
  present_->community_ = kUsualCommunity;
  present_->version1Address_.reset();
}

void SinkDirectives::read(const std::string& directive, const std::string& value) {
  if (directive == "trapcommunity") {
    community_ = value;
  } else if (directive == "v1trapaddress") {
    version1Address_ = addressOf(value);
  } else if (directive == "trapsess") {
    sinks_.push_back(sinkOfSession(value));
  } else if (directive == "trapsink") {
    sinks_.push_back(sinkOfLine(value, SNMP_VERSION_1, SNMP_MSG_TRAP, community_));
  } else {
    const int command = directive == "informsink" ? SNMP_MSG_INFORM : SNMP_MSG_TRAP2;
    sinks_.push_back(sinkOfLine(value, SNMP_VERSION_2c, command, community_));
  }
}

}  // namespace Host
