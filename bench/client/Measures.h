#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench/client/Manager.h"
#include "bench/client/Subject.h"

namespace Bench {

// How long each subject is asked at a time, and how often in a round.
struct Pace {
  double blockSeconds;
  int blocks;
};

// What one round found: measure, then subject. Medians of latencies, and means of the time of the
// agent's processor, in microseconds ("…_us"); the others are values a second at the pace of the
// median request, which what else the machine does in between hardly touches.
using Round = std::map<std::string, std::map<std::string, double>>;

// Measures the subjects side by side: within a round they take turns, a block each, so that what
// else the machine does meanwhile meets them all.
class Measures {
 public:
  Measures(Manager& manager, pid_t agent, U32 rows);

  // Raises std::runtime_error unless every table holds what the first one does, and no more.
  void check();
  Round round(const Pace& pace);
  // Finds so many values of the subject of that title, one by one, from its first on and again.
  void walkThrough(const std::string& title, std::uint64_t values);

 private:
  // Where a walk of a subject stands, and how many values it has found since it began.
  struct Walk {
    explicit Walk(const Subject& walked);
    void found(const std::vector<Varbind>& varbinds);

    const Subject* subject;
    std::string root;
    std::string last;
    std::string name;
    std::uint64_t values = 0;
  };

  void ask(Question question, const Asked& asked);
  void latency(Round& round, const Pace& pace, Question question, const std::string& name);
  void walk(Round& round, const Pace& pace, Question question, const std::string& name,
            U32 repetitions);
  void miss(Round& round, const Pace& pace);
  void goOn(Walk& walk, double seconds, Question question, U32 repetitions,
            std::vector<double>& found);
  double processorSeconds() const;
  void checkTable(const Subject& subject);

  Manager& manager_;
  clockid_t processor_{};
  const U32 rows_;
  const std::vector<Subject> all_;
  std::vector<Subject> raced_;  // all but the map, which is for misses
  std::mt19937_64 random_{20260101};
  std::uint64_t turn_ = 0;
  std::map<std::string, std::vector<Walk>> walks_;  // by measure; each goes on in the next round
};

}  // namespace Bench
