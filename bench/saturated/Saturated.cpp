// Answers a second of norvek-snmpd, kept busy, beside those of Debian's snmpd serving a scalar.
//
// Both run pinned to one core and are asked in turn, each round begun with another one, by one
// client on another core, which keeps a number of requests in flight so that neither agent ever
// waits. Besides the rate as it was seen, the one per second of the agent's own processor time is
// told: it is the same figure on a machine that does nothing else, and holds on one that is shared.
// Prints JSON; `ratio` is ours to Debian's in each round, and `median` of it.

#include <arpa/inet.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

using Seconds = std::chrono::duration<double>;
using Steady = std::chrono::steady_clock;

struct Settings {
  std::filesystem::path programs = "build/release/bin";
  std::string stock = "/usr/sbin/snmpd";
  int rounds = 9;
  double seconds = 1;
  int window = 64;
  int agentCore = 0;
  int clientCore = 1;
};

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void pinTo(int core) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<std::size_t>(core), &set);
  if (sched_setaffinity(0, sizeof set, &set) != 0) fail("sched_setaffinity");
}

// A GET of one object, version 2c, community "public". Short enough for lengths of one octet.
std::string getOf(std::string_view object) {
  const auto tagged = [](char tag, std::string_view content) {
    return std::string{tag, static_cast<char>(content.size())}.append(content);
  };
  std::string name;
  std::vector<unsigned> parts;
  std::istringstream text{std::string(object)};
  for (std::string part; std::getline(text, part, '.');) {
    parts.push_back(static_cast<unsigned>(std::stoul(part)));
  }
  name += static_cast<char>(parts.at(0) * 40 + parts.at(1));
  for (auto part = parts.begin() + 2; part != parts.end(); ++part) {
    std::string groups(1, static_cast<char>(*part & 0x7F));
    for (unsigned rest = *part >> 7; rest != 0; rest >>= 7) {
      groups.insert(groups.begin(), static_cast<char>(0x80 | (rest & 0x7F)));
    }
    name += groups;
  }
  const std::string binding = tagged(0x30, tagged(0x06, name) + tagged(0x05, ""));
  const std::string integers = tagged(0x02, "\x11") + tagged(0x02, std::string(1, '\0')) +
                               tagged(0x02, std::string(1, '\0'));
  const std::string pdu = tagged(static_cast<char>(0xA0), integers + tagged(0x30, binding));
  return tagged(0x30, tagged(0x02, "\x01") + tagged(0x04, "public") + pdu);
}

// Octets that an answer must have: version, community, PDU and the integers up to the bindings.
bool isGoodAnswer(std::string_view answer, std::string_view request) {
  constexpr std::string_view kNoError("\x02\x01\x11\x02\x01\x00\x02\x01\x00\x30", 10);
  const auto at = answer.find(kNoError);
  if (at == std::string_view::npos || answer.size() <= request.size()) return false;
  // A value takes the place of the NULL; exceptions have none, and the tags 0x80 to 0x82.
  const std::size_t name = request.find('\x06', request.find(kNoError));
  const std::size_t length = static_cast<unsigned char>(request.at(name + 1));
  const std::size_t found = answer.find(request.substr(name, length + 2));
  return found != std::string_view::npos &&
         (static_cast<unsigned char>(answer.at(found + length + 2)) & 0x80) == 0;
}

int freePort() {
  const int probe = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (::bind(probe, reinterpret_cast<const sockaddr*>(&address), length) != 0) fail("bind");
  ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(probe);
  return ntohs(address.sin_port);
}

class Client {
 public:
  explicit Client(int port) : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      fail("connect");
    }
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client() { ::close(socket_); }

  // Whether the request is answered with a value, within `patience` milliseconds.
  bool isAnswered(const std::string& request, int patience) const {
    std::array<char, 2048> answer{};
    if (::send(socket_, request.data(), request.size(), 0) < 0) return false;
    pollfd ready{socket_, POLLIN, 0};
    if (::poll(&ready, 1, patience) != 1) return false;
    const ssize_t size = ::recv(socket_, answer.data(), answer.size(), 0);
    return size > 0 && isGoodAnswer({answer.data(), static_cast<std::size_t>(size)}, request);
  }

  struct Answers {
    long inTime = 0;
    double seconds = 0;  // in which those came
    long all = 0;        // with what was still in flight then
  };
  // The answers to `request` within a time, with `window` of them in flight throughout.
  Answers answersWithin(Seconds time, const std::string& request, int window) const {
    long answers = 0;
    const auto begin = Steady::now();
    send(request, window);
    while (Steady::now() < begin + time) {
      const int received = receive(request, window);
      answers += received;
      // Where none came in a while they were lost, and others take their place.
      send(request, received > 0 ? received : window);
    }
    Answers found{answers, Seconds(Steady::now() - begin).count(), answers};
    while (const int received = receive(request, window)) found.all += received;
    return found;
  }

 private:
  static constexpr int kMost = 256;

  void send(const std::string& request, int count) const {
    iovec part{const_cast<char*>(request.data()), request.size()};
    std::array<mmsghdr, kMost> messages{};
    for (mmsghdr& message : messages) message.msg_hdr = {nullptr, 0, &part, 1, nullptr, 0, 0};
    if (::sendmmsg(socket_, messages.data(), static_cast<unsigned>(count), 0) < 0) fail("send");
  }

  int receive(const std::string& request, int most) const {
    static std::array<std::array<char, 512>, kMost> answers;
    std::array<iovec, kMost> parts;
    std::array<mmsghdr, kMost> messages{};
    for (std::size_t i = 0; i < kMost; ++i) {
      parts[i] = {answers[i].data(), answers[i].size()};
      messages[i].msg_hdr = {nullptr, 0, &parts[i], 1, nullptr, 0, 0};
    }
    timespec patience{0, 200'000'000};
    pollfd ready{socket_, POLLIN, 0};
    if (::ppoll(&ready, 1, &patience, nullptr) != 1) return 0;
    const int count =
        ::recvmmsg(socket_, messages.data(), static_cast<unsigned>(most), MSG_DONTWAIT, nullptr);
    for (std::size_t i = 0; i < static_cast<std::size_t>(std::max(count, 0)); ++i) {
      if (!isGoodAnswer({answers[i].data(), messages[i].msg_len}, request)) {
        throw std::runtime_error("an agent answered with an error under load");
      }
    }
    return std::max(count, 0);
  }

  const int socket_;
};

// An agent in a process of its own, pinned, answering at a free port of loopback.
class Agent {
 public:
  Agent(std::string name, std::string object, int core, std::vector<std::string> command, int port)
      : name_(std::move(name)), request_(getOf(object)), port_(port), process_(::fork()) {
    if (process_ < 0) fail("fork");
    if (process_ == 0) run(std::move(command), core);
    const auto patience = Steady::now() + std::chrono::seconds(20);
    while (!Client(port_).isAnswered(request_, 100)) {
      if (Steady::now() > patience || ::waitpid(process_, nullptr, WNOHANG) == process_) {
        throw std::runtime_error(name_ + " does not answer");
      }
    }
  }
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;
  ~Agent() {
    ::kill(process_, SIGTERM);
    ::waitpid(process_, nullptr, 0);
  }

  const std::string& name() const { return name_; }

  struct Rate {
    double seen = 0;  // answers a second
    double own = 0;   // answers a second of its processor time
  };
  Rate rate(const Settings& settings) const {
    const Client client(port_);
    const double before = processorTime();
    const Client::Answers answers =
        client.answersWithin(Seconds(settings.seconds), request_, settings.window);
    return {static_cast<double>(answers.inTime) / answers.seconds,
            static_cast<double>(answers.all) / (processorTime() - before)};
  }

 private:
  [[noreturn]] static void run(std::vector<std::string> command, int core) {
    pinTo(core);
    // Debian's keeps what it knows of itself; not among what the machine's own one keeps.
    ::setenv("SNMP_PERSISTENT_DIR", std::filesystem::temp_directory_path().c_str(), 1);
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int fd : {0, 1, 2}) ::dup2(nowhere, fd);
    std::vector<char*> arguments;
    for (std::string& argument : command) arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
  }

  // Seconds that its threads have run.
  double processorTime() const {
    double nanoseconds = 0;
    for (const auto& thread :
         std::filesystem::directory_iterator(fmt::format("/proc/{}/task", process_))) {
      double own = 0;
      std::ifstream(thread.path() / "schedstat") >> own;
      nanoseconds += own;
    }
    return nanoseconds * 1e-9;
  }

  const std::string name_;
  const std::string request_;
  const int port_;
  const pid_t process_;
};

// Debian's own configuration and modules, but for the addresses.
std::string stockConfiguration(const std::filesystem::path& folder) {
  const auto path = folder / "snmpd.conf";
  std::ofstream configuration(path);
  std::ifstream debians("/etc/snmp/snmpd.conf");
  if (!debians) {
    configuration << "view systemonly included .1.3.6.1.2.1.1\n"
                     "view systemonly included .1.3.6.1.2.1.25.1\n"
                     "rocommunity public default -V systemonly\n";
  }
  for (std::string line; std::getline(debians, line);) {
    if (!line.starts_with("agentaddress") && !line.starts_with("includeDir")) {
      configuration << line << '\n';
    }
  }
  return path;
}

double medianOf(std::vector<double> values) {
  std::ranges::sort(values);
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

std::string figures(const std::vector<double>& values) {
  const auto [least, most] = std::ranges::minmax(values);
  return fmt::format(R"({{"median": {:.3f}, "least": {:.3f}, "most": {:.3f}, "rounds": [{:.3f}]}})",
                     medianOf(values), least, most, fmt::join(values, ", "));
}

struct Measured {
  std::vector<double> seen, own;
};

void print(const Settings& settings, const std::vector<std::string>& names,
           const std::vector<Measured>& found) {
  fmt::print("{{\n  \"window\": {}, \"seconds\": {}, \"agentCore\": {}, \"clientCore\": {},\n",
             settings.window, settings.seconds, settings.agentCore, settings.clientCore);
  for (std::size_t agent = 0; agent < names.size(); ++agent) {
    const auto ratios = [&](std::vector<double> Measured::*rate) {
      std::vector<double> result;
      for (std::size_t round = 0; round < (found[agent].*rate).size(); ++round) {
        result.push_back((found[agent].*rate)[round] / (found[0].*rate)[round]);
      }
      return figures(result);
    };
    fmt::print("  \"{}\": {{\n    \"answersPerSecond\": {},\n", names[agent],
               figures(found[agent].seen));
    fmt::print("    \"answersPerProcessorSecond\": {},\n", figures(found[agent].own));
    fmt::print("    \"ratio\": {},\n    \"ratioOfProcessorTime\": {}\n  }}{}\n",
               ratios(&Measured::seen), ratios(&Measured::own),
               agent + 1 < names.size() ? "," : "");
  }
  fmt::print("}}\n");
}

void measure(const Settings& settings, const std::filesystem::path& folder) {
  const std::string database = fmt::format("file:{}", (folder / "kavra.json").string());
  const std::string record = fmt::format(
      "'{}' --db '{}' record-reset --cell 1 --cause 'Power loss' --time 1700000000 2>/dev/null",
      (settings.programs / "kavra").string(), database);
  if (std::system(record.c_str()) != 0) throw std::runtime_error("kavra failed: " + record);

  const int stockPort = freePort();
  const Agent stock("stockScalar", "1.3.6.1.2.1.1.3.0", settings.agentCore,
                    {settings.stock, "-f", "-LOw", "-I", "-smux,mteTrigger,mteTriggerConf", "-C",
                     "-c", stockConfiguration(folder), "-p", (folder / "snmpd.pid").string(),
                     fmt::format("udp:127.0.0.1:{}", stockPort)},
                    stockPort);
  const auto ours = [&](const char* name, const char* object) {
    const int port = freePort();
    return std::make_unique<Agent>(
        name, object, settings.agentCore,
        std::vector<std::string>{settings.programs / "norvek-snmpd", "--cell-id", "1", "--db",
                                 database, "--listen", fmt::format("udp:127.0.0.1:{}", port)},
        port);
  };
  const auto scalar = ours("scalar", "1.3.6.1.2.1.1.3.0");
  const auto table = ours("table", "1.3.6.1.4.1.32473.3.24.1.1.1.4.0.0.1");

  const std::vector<const Agent*> agents{&stock, scalar.get(), table.get()};
  std::vector<Measured> found(agents.size());
  pinTo(settings.clientCore);
  for (int round = 0; round < settings.rounds; ++round) {
    for (std::size_t turn = 0; turn < agents.size(); ++turn) {
      const std::size_t agent = (static_cast<std::size_t>(round) + turn) % agents.size();
      const Agent::Rate rate = agents[agent]->rate(settings);
      found[agent].seen.push_back(rate.seen);
      found[agent].own.push_back(rate.own);
    }
  }
  std::vector<std::string> names;
  for (const Agent* agent : agents) names.push_back(agent->name());
  print(settings, names, found);
}

}  // namespace

int main(int argc, char** argv) {
  Settings settings;
  CLI::App app("Answers a second of norvek-snmpd and of Debian's snmpd, both kept busy.");
  app.add_option("--programs", settings.programs, "folder of norvek-snmpd and kavra");
  app.add_option("--stock", settings.stock, "Debian's snmpd");
  app.add_option("--rounds", settings.rounds)->check(CLI::Range(1, 1000));
  app.add_option("--seconds", settings.seconds, "of each agent in a round");
  app.add_option("--window", settings.window, "requests in flight")->check(CLI::Range(1, 256));
  app.add_option("--agent-core", settings.agentCore);
  app.add_option("--client-core", settings.clientCore);
  CLI11_PARSE(app, argc, argv);

  std::string folder = (std::filesystem::temp_directory_path() / "saturated-XXXXXX").string();
  if (::mkdtemp(folder.data()) == nullptr) fail("mkdtemp");
  int status = 0;
  try {
    measure(settings, folder);
  } catch (const std::exception& error) {
    fmt::print(stderr, "saturated: {}\n", error.what());
    status = 1;
  }
  std::filesystem::remove_all(folder);
  return status;
}
