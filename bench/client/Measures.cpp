#include "bench/client/Measures.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace Bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr double kMicro = 1e6;
constexpr U32 kFewestForBulk = 100;   // a table that a GETBULK of 50 does not run past
constexpr U32 kFewestForMiss = 1000;  // where the steps of a walk outweigh the rest of a request
constexpr double kWarmUp = 0.25;      // of a block, before it, while the caches fill again

double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Those that take turns, beginning with another one each time.
std::vector<std::size_t> orderOf(std::size_t count, std::uint64_t turn) {
  std::vector<std::size_t> order;
  for (std::size_t i = 0; i < count; ++i) order.push_back((i + turn) % count);
  return order;
}

}  // namespace

Measures::Walk::Walk(const Subject& walked)
    : subject(&walked), root(walked.root()), last(walked.last()), name(root) {}

void Measures::Walk::found(const std::vector<Varbind>& varbinds) {
  for (const Varbind& varbind : varbinds) {
    if (!varbind.name.starts_with(root) || varbind.type != kOctetString) {
      throw std::runtime_error(fmt::format("a walk of {} left it", subject->title()));
    }
  }
  values += varbinds.size();
  name = varbinds.back().name;
  if (name != last) return;
  if (values != subject->values()) {
    throw std::runtime_error(fmt::format("a walk of {} found {} values", subject->title(), values));
  }
  name = root;
  values = 0;
}

Measures::Measures(Manager& manager, pid_t agent, U32 rows)
    : manager_(manager), rows_(rows), all_(subjects(rows)), raced_(all_) {
  std::erase_if(raced_,
                [](const Subject& subject) { return std::string_view(subject.title()) == "map"; });
  if (const int error = ::clock_getcpuclockid(agent, &processor_); error != 0) {
    throw std::system_error(error, std::generic_category(), "no clock of the agent's processor");
  }
}

double Measures::processorSeconds() const {
  timespec time{};
  if (::clock_gettime(processor_, &time) != 0) {
    throw std::system_error(errno, std::generic_category(), "the agent is gone");
  }
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void Measures::ask(Question question, const Asked& asked) {
  const Response& response = manager_.ask(question, asked.name);
  if (response.varbinds.size() != 1 || response.varbinds[0].name != asked.answer ||
      response.varbinds[0].type != kOctetString) {
    throw std::runtime_error("the agent answered with another value");
  }
}

void Measures::checkTable(const Subject& subject) {
  const auto valueOf = [this](const std::string& name) {
    const Response& response = manager_.ask(Question::get, name);
    const Varbind& varbind = response.varbinds.at(0);
    return varbind.type == kOctetString ? std::string(varbind.value) : std::string();
  };
  for (std::uint64_t row : {std::uint64_t{0}, std::uint64_t{rows_} / 2, std::uint64_t{rows_} - 1,
                            random_(), random_()}) {
    const std::string text = valueOf(all_[0].get(row).name);
    const std::string time = valueOf(all_[0].timeOf(row));
    if (text.empty() || time.empty() || text != valueOf(subject.get(row).name) ||
        time != valueOf(subject.timeOf(row))) {
      throw std::runtime_error(fmt::format("{} differs in row {}", subject.title(), row % rows_));
    }
  }
  const Response& behind = manager_.ask(Question::getNext, subject.last());
  if (behind.varbinds.at(0).name.starts_with(subject.root())) {
    throw std::runtime_error(fmt::format("{} has more rows", subject.title()));
  }
}

void Measures::check() {
  for (const Subject& subject : all_) {
    if (!subject.isScalar()) checkTable(subject);
  }
}

void Measures::latency(Round& round, const Pace& pace, Question question, const std::string& name) {
  std::vector<std::vector<double>> found(raced_.size());
  std::vector<double> processor(raced_.size());
  for (int block = 0; block < pace.blocks; ++block) {
    for (const std::size_t i : orderOf(raced_.size(), turn_++)) {
      const auto next = [&] {
        return question == Question::get ? raced_[i].get(random_()) : raced_[i].getNext(random_());
      };
      for (const auto begin = Clock::now(); secondsSince(begin) < kWarmUp * pace.blockSeconds;) {
        ask(question, next());
      }
      const double before = processorSeconds();
      for (const auto begin = Clock::now(); secondsSince(begin) < pace.blockSeconds;) {
        const Asked asked = next();
        const auto sent = Clock::now();
        ask(question, asked);
        found[i].push_back(secondsSince(sent) * kMicro);
      }
      processor[i] += (processorSeconds() - before) * kMicro;
    }
  }
  for (std::size_t i = 0; i < raced_.size(); ++i) {
    round[name + "_us"][raced_[i].title()] = median(found[i]);
    round[name + "_cpu_us"][raced_[i].title()] =
        processor[i] / static_cast<double>(found[i].size());
  }
}

// The times from one answer to the next go to `found`, divided by the values in the answer.
void Measures::goOn(Walk& walk, double seconds, Question question, U32 repetitions,
                    std::vector<double>& found) {
  const auto begin = Clock::now();
  for (auto before = begin; secondsSince(begin) < seconds;) {
    const Response& response = manager_.ask(question, walk.name, repetitions);
    walk.found(response.varbinds);
    const auto now = Clock::now();
    found.push_back(std::chrono::duration<double>(now - before).count() /
                    static_cast<double>(response.varbinds.size()));
    before = now;
  }
}

void Measures::walk(Round& round, const Pace& pace, Question question, const std::string& name,
                    U32 repetitions) {
  const auto [place, isNew] = walks_.try_emplace(name);
  std::vector<Walk>& walks = place->second;
  if (isNew) {
    for (const Subject& subject : raced_) walks.emplace_back(subject);
  }
  std::vector<std::vector<double>> found(raced_.size());
  for (int block = 0; block < pace.blocks; ++block) {
    for (const std::size_t i : orderOf(raced_.size(), turn_++)) {
      std::vector<double> warmUp;
      goOn(walks[i], kWarmUp * pace.blockSeconds, question, repetitions, warmUp);
      goOn(walks[i], pace.blockSeconds, question, repetitions, found[i]);
    }
  }
  for (std::size_t i = 0; i < raced_.size(); ++i) {
    round[name][raced_[i].title()] = 1 / median(found[i]);
  }
}

void Measures::walkThrough(const std::string& title, std::uint64_t values) {
  const auto subject = std::find_if(all_.begin(), all_.end(),
                                    [&](const Subject& one) { return one.title() == title; });
  if (subject == all_.end()) throw std::invalid_argument("nothing is called " + title);
  Walk walk(*subject);
  while (values-- > 0) walk.found(manager_.ask(Question::getNext, walk.name).varbinds);
}

void Measures::miss(Round& round, const Pace& pace) {
  for (const Subject& subject : all_) {
    const std::string_view title = subject.title();
    if (title != "ours" && title != "map") continue;
    const std::string name = subject.missing();
    std::vector<double> found;
    for (const auto begin = Clock::now();
         found.size() < 3 || secondsSince(begin) < pace.blockSeconds;) {
      const auto sent = Clock::now();
      if (manager_.ask(Question::get, name).varbinds.at(0).type == kOctetString) {
        throw std::runtime_error(fmt::format("{} has a row that it must not have", title));
      }
      found.push_back(secondsSince(sent) * kMicro);
    }
    round["miss_us"][subject.title()] = median(found);
  }
}

Round Measures::round(const Pace& pace) {
  Round round;
  latency(round, pace, Question::get, "get");
  latency(round, pace, Question::getNext, "getnext");
  walk(round, pace, Question::getNext, "walk_values", 0);
  if (rows_ >= kFewestForBulk) {
    walk(round, pace, Question::getBulk, "bulk10_values", 10);
    walk(round, pace, Question::getBulk, "bulk50_values", 50);
  }
  if (rows_ >= kFewestForMiss) miss(round, pace);
  return round;
}

}  // namespace Bench
