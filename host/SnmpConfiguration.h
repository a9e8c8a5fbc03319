#pragma once

#include <functional>
#include <optional>
#include <string>

namespace Host {

// All of the agent's net-snmp configuration, above all who may read what: the lines that the agent
// obeys, from a file or built in. Nothing else is read: neither /etc/snmp nor what an agent stored
// earlier.
//
// Construct between init_agent and init_snmp, which calls back for the lines; then ask check().
// One a process at a time.
class SnmpConfiguration {
 public:
  // Without a file: community "public" from loopback addresses may read the enterprise's subtree
  // and the system group.
  explicit SnmpConfiguration(const std::optional<std::string>& file);
  SnmpConfiguration(const SnmpConfiguration&) = delete;
  SnmpConfiguration& operator=(const SnmpConfiguration&) = delete;
  ~SnmpConfiguration();

  // Raises StartError when the file could not be read, or holds a line that net-snmp does not take
  // or this agent does not obey, or when it lets nobody in.
  void check() const;

  // Runs `passes`, in which net-snmp calls back for the lines, and raises what check() raises; what
  // net-snmp had to say of them, too.
  void read(const std::function<void()>& passes);
  // The same with the file as it is now, in the place of all that was read before. What is read
  // before anything else, such as engineID, stays as it was. Raises what read() raises.
  void readAgain();

 private:
  static int readNow(int major, int minor, void* serverArgument, void* unused);

  void readPass(int when);
  void readFile(int when);
  void note(const std::string& error);

  static SnmpConfiguration* present_;

  const std::optional<std::string> file_;
  std::string firstError_;
};

}  // namespace Host
