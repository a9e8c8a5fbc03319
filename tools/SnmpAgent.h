#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/ReloadTable.h"

namespace Tools {

// How to reach an agent and as whom. What is not given is as net-snmp's client configuration says
// (snmp.conf(5)), which alone holds what is secret: communities and passphrases.
struct SnmpOptions {
  std::string agent;                          // in net-snmp's notation: [TRANSPORT:]HOST[:PORT]
  std::optional<std::string> version;         // 1, 2c, 3
  std::optional<std::string> user;            // the rest is for version 3
  std::optional<std::string> level;           // noAuthNoPriv, authNoPriv, authPriv
  std::optional<std::string> authentication;  // protocol: SHA-256, ...
  std::optional<std::string> privacy;         // protocol: AES, ...
  std::optional<std::string> context;
  std::optional<std::string> timeout;  // seconds until a request is repeated
  std::optional<std::string> retries;
};

// An agent on the network, asked over one session of net-snmp. One lives at a time.
//
// Without a version it is 3 where a user is named here or in the configuration, else 2c, as the
// community of the configuration or "public". All errors are CommandErrors that begin with the
// agent.
class SnmpAgent final : public SnmpPeer {
 public:
  explicit SnmpAgent(const SnmpOptions& options);
  ~SnmpAgent() override;

  std::vector<SnmpBinding> next(const std::vector<ObjectId>& names) override;
  SnmpBinding get(const ObjectId& name) override;

 private:
  class Library;
  class Session;

  std::unique_ptr<Library> library_;
  std::unique_ptr<Session> session_;
};

}  // namespace Tools
