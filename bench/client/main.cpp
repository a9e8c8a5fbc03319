// bench_client: what requests for the table and for its anchors cost in a running agent, as JSON.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <exception>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

#include "bench/client/Manager.h"
#include "bench/client/Measures.h"
#include "bench/client/Subject.h"

namespace {

constexpr useconds_t kPause = 200;  // microseconds
constexpr std::chrono::seconds kPatience{60};

struct Options {
  unsigned short port = 0;
  pid_t agent = 0;
  U32 rows = 0;
  int rounds = 1;
  Bench::Pace pace{0.04, 3};
  bool awaits = false;
  std::string walked;
  std::uint64_t values = 0;
};

std::optional<Options> readOptions(int argc, char** argv) {
  Options options;
  CLI::App app("Measures requests to an agent on 127.0.0.1 that serves the table and its anchors");
  app.add_option("--port", options.port, "its UDP port")->required();
  app.add_option("--rows", options.rows, "rows of the table, an even number")->required();
  app.add_option("--pid", options.agent, "its process");
  app.add_option("--rounds", options.rounds, "how often everything is measured");
  app.add_option("--block", options.pace.blockSeconds,
                 "seconds for which a table is asked at a time");
  app.add_option("--blocks", options.pace.blocks, "such times in a round");
  app.add_flag("--await", options.awaits,
               "instead, wait for the first answer and tell CLOCK_MONOTONIC in nanoseconds");
  app.add_option("--walk", options.walked, "instead, walk through one table");
  app.add_option("--values", options.values, "as many values of it");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (app.exit(error) != 0) throw std::invalid_argument("see --help");
    return {};
  }
  return options;
}

bool answers(Bench::Manager& manager, const std::string& name) {
  try {
    const auto& varbinds = manager.ask(Bench::Question::get, name).varbinds;
    return varbinds.size() == 1 && varbinds[0].type == Bench::kOctetString;
  } catch (const std::system_error&) {
    return false;  // nobody listens yet
  }
}

void awaitFirstAnswer(const Options& options) {
  Bench::Manager manager(options.port);
  const std::string name = Bench::subjects(options.rows)[0].get(0).name;
  const auto begin = std::chrono::steady_clock::now();
  while (!answers(manager, name)) {
    if (std::chrono::steady_clock::now() - begin > kPatience) {
      throw std::runtime_error("there is no answer");
    }
    ::usleep(kPause);
  }
  std::cout << std::chrono::steady_clock::now().time_since_epoch().count() << std::endl;
}

void measure(const Options& options) {
  Bench::Manager manager(options.port);
  Bench::Measures measures(manager, options.agent, options.rows);
  measures.check();
  nlohmann::json rounds = nlohmann::json::array();
  for (int i = 0; i < options.rounds; ++i) rounds.push_back(measures.round(options.pace));
  std::cout << rounds << std::endl;
}

void walk(const Options& options) {
  Bench::Manager manager(options.port);
  Bench::Measures(manager, ::getpid(), options.rows).walkThrough(options.walked, options.values);
  std::cout << options.values << std::endl;
}

void run(const Options& options) {
  if (options.awaits) return awaitFirstAnswer(options);
  options.walked.empty() ? measure(options) : walk(options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const auto options = readOptions(argc, argv);
    if (!options) return 0;
    run(*options);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "bench_client: " << error.what() << '\n';
    return 1;
  }
}
