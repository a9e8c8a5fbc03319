#include "resetcause/Machine.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace resetcausetest {

namespace {

constexpr char kMachineId[] = "cccccccccccccccccccccccccccccccc";

void run(const std::string& command) {
  if (std::system(command.c_str()) != 0) throw std::runtime_error("this failed: " + command);
}

std::uint64_t microseconds(double seconds) {
  return static_cast<std::uint64_t>(std::llround(seconds * 1e6));
}

std::string newFolder() {
  std::string name = std::filesystem::temp_directory_path() / "machine.XXXXXX";
  if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no folder");
  return name;
}

// As utmpdump prints one, and reads it.
std::string wtmpLine(int type, const std::string& user, double time) {
  const auto whole = static_cast<std::time_t>(std::floor(time));
  const auto micro = static_cast<int>((time - std::floor(time)) * 1e6);
  return fmt::format(
      "[{}] [00000] [~~  ] [{:<8}] [~           ] [6.1.0-40-amd64      ] [0.0.0.0        ] "
      "[{:%Y-%m-%dT%H:%M:%S},{:06}+00:00]\n",
      type, user, fmt::gmtime(whole), micro);
}

constexpr int kRunLevel = 1;
constexpr int kBootTime = 2;

}  // namespace

Machine::Machine()
    : clock_(Qel::make<support::ManualClock>(kThisStart + 60)), folder_(newFolder()) {
  starts_ = {{kOlder, kOlderStart}, {kBefore, kBeforeStart}, {kThis, kThisStart}};
  writes("/etc/machine-id", std::string(kMachineId) + "\n");
  writes("/proc/sys/kernel/random/boot_id", "33333333-3333-3333-3333-333333333333\n");
  writes("/proc/stat", fmt::format("cpu 1 2\nbtime {:.0f}\nprocesses 1\n", kThisStart));
  says(kOlder, 1, "Linux version 6.1.0", {{"_TRANSPORT", "kernel"}});
  says(kOlder, 9000, "an hour like any other");
  says(kBefore, 1, "Linux version 6.1.0", {{"_TRANSPORT", "kernel"}});
  says(kBefore, kDown - 10, "an hour like any other");
}

Machine::~Machine() {
  std::error_code error;
  std::filesystem::remove_all(folder_, error);
}

void Machine::writes(const std::string& path, const std::string& text) const {
  const std::filesystem::path whole(folder_ + path);
  std::filesystem::create_directories(whole.parent_path());
  std::ofstream file(whole, std::ios::binary | std::ios::trunc);
  file << text;
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

void Machine::changed(const std::string& path, double time) const {
  const timespec when{static_cast<time_t>(time), 0};
  const timespec times[] = {when, when};
  if (::utimensat(AT_FDCWD, (folder_ + path).c_str(), times, 0) != 0) {
    throw std::runtime_error("no such file: " + path);
  }
}

std::string Machine::read(const std::string& path) const {
  std::ifstream file(folder_ + path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void Machine::says(const std::string& boot, double seconds, const std::string& message,
                   const Fields& fields) {
  std::string entry = fmt::format(
      "__REALTIME_TIMESTAMP={}\n__MONOTONIC_TIMESTAMP={}\n_BOOT_ID={}\n_MACHINE_ID={}\nMESSAGE={}"
      "\n",
      microseconds(starts_.at(boot) + seconds), microseconds(seconds), boot, kMachineId, message);
  for (const auto& [name, value] : fields) entry += fmt::format("{}={}\n", name, value);
  entries_.push_back(entry + "\n");
}

void Machine::initSays(double seconds, const std::string& message, const Fields& fields) {
  says(kBefore, seconds, message, byInit(fields));
}

void Machine::loginManagerSays(double seconds, const std::string& way, const std::string& message) {
  says(kBefore, seconds, message, byLoginManager(way));
}

void Machine::reaches(double seconds, const std::string& target) {
  says(kBefore, seconds, "Reached target " + target, ofTarget(target));
}

void Machine::journalStops(double seconds) {
  says(kBefore, seconds, "Journal stopped", ofJournalsEnd());
}

void Machine::wtmpHas(const std::optional<double>& shutdown) {
  using What = ResetCause::WtmpRecord::What;
  std::vector<ResetCause::WtmpRecord> records{{What::boot, starts_.at(kOlder) + 5},
                                              {What::boot, starts_.at(kBefore) + 5}};
  if (shutdown) records.push_back({What::shutdown, starts_.at(kBefore) + *shutdown});
  records.push_back({What::boot, starts_.at(kThis) + 5});
  wtmpIs(records);
}

void Machine::wtmpIs(const std::vector<ResetCause::WtmpRecord>& records) const {
  std::string text;
  for (const ResetCause::WtmpRecord& one : records) {
    const bool isBoot = one.what == ResetCause::WtmpRecord::What::boot;
    text += isBoot ? wtmpLine(kBootTime, "reboot", one.time) +
                         wtmpLine(kRunLevel, "runlevel", one.time + 4)
                   : wtmpLine(kRunLevel, "shutdown", one.time);
  }
  writes("/wtmp.txt", text);
  std::filesystem::create_directories(folder_ + "/var/log");
  run("utmpdump -r <" + folder_ + "/wtmp.txt >" + folder_ + "/var/log/wtmp 2>/dev/null");
}

void Machine::dumped(double second, const std::string& text, double made) {
  const auto id = static_cast<std::uint64_t>(second) << 32U;
  const std::string folder = fmt::format("/var/lib/systemd/pstore/{}", id);
  writes(fmt::format("{}/dmesg-erst-{}", folder, id + 1), text);
  changed(folder, made);
}

void Machine::hasWatchdog(const std::string& name, unsigned status) const {
  writes("/sys/class/watchdog/" + name + "/bootstatus", fmt::format("{}\n", status));
}

void Machine::reloads(const std::string& boot, double start) {
  starts_[boot] = start;
  std::string id = boot;
  for (const std::size_t at : {20U, 16U, 12U, 8U}) id.insert(at, "-");
  writes("/proc/sys/kernel/random/boot_id", id + "\n");
  writes("/proc/stat", fmt::format("cpu 1 2\nbtime {:.0f}\n", start));
  says(boot, 1, "Linux version 6.1.0", {{"_TRANSPORT", "kernel"}});
  clock_->nowIs(start + 60);
}

void Machine::keepsNoJournal() {
  settle();
  std::filesystem::remove_all(folder_ + "/var/log/journal");
}

void Machine::loses(const std::string& boot) {
  std::erase_if(entries_, [&](const std::string& entry) {
    return entry.find("_BOOT_ID=" + boot + "\n") != std::string::npos;
  });
  settled_ = std::string::npos;
}

void Machine::losesAll() {
  entries_.clear();
  settled_ = std::string::npos;
}

std::string Machine::journalFile() const {
  return std::string("/var/log/journal/") + kMachineId + "/system.journal";
}

void Machine::settle() {
  if (settled_ == 0) {
    // This boot, unless the test has told of it already.
    const bool isTold = std::ranges::any_of(
        entries_, [](const std::string& entry) { return entry.find(kThis) != std::string::npos; });
    if (!isTold) says(kThis, 1, "Linux version 6.1.0", {{"_TRANSPORT", "kernel"}});
  }
  if (settled_ == entries_.size()) return;
  settled_ = entries_.size();
  std::string text;
  for (const std::string& entry : entries_) text += entry;
  writes("/journal.export", text);
  const std::string file = folder_ + journalFile();
  std::filesystem::create_directories(std::filesystem::path(file).parent_path());
  std::filesystem::remove(file);
  run(std::string(JOURNAL_REMOTE) + " -o " + file + " " + folder_ + "/journal.export 2>/dev/null");
}

ResetCause::Judgement Machine::judged() {
  settle();
  return ResetCause::judge(root(), *clock_);
}

std::string Machine::rules() { return rulesOf(judged().verdict); }

std::string Machine::judgedAndKept() {
  const ResetCause::Judgement judgement = judged();
  keep(root(), judgement);
  return rulesOf(judgement.verdict);
}

Machine::Fields byInit(Machine::Fields fields) {
  fields.insert({{"_PID", "1"}, {"_UID", "0"}, {"_COMM", "systemd"}});
  return fields;
}

Machine::Fields ofTarget(const std::string& target) {
  return byInit({{"MESSAGE_ID", "39f53479d3a045ac8e11786248231fbf"}, {"UNIT", target}});
}

Machine::Fields ofFailedUnit(const std::string& unit) {
  return byInit({{"MESSAGE_ID", "d9b373ed55a64feb8242e02dbe79a49c"}, {"UNIT", unit}});
}

Machine::Fields byLoginManager(const std::string& way) {
  return {{"MESSAGE_ID", "98268866d1d54a499c4e98921d93bc40"},
          {"SHUTDOWN", way},
          {"_UID", "0"},
          {"_COMM", "systemd-logind"}};
}

Machine::Fields ofPowerKey() {
  return {{"MESSAGE_ID", "b72ea4a2881545a0b50e200e55b9b071"}, {"_UID", "0"}};
}

Machine::Fields ofJournalsEnd() {
  return {
      {"MESSAGE_ID", "d93fb3c9c24d451a97cea615ce59c00b"}, {"_TRANSPORT", "driver"}, {"_UID", "0"}};
}

std::string rulesOf(const ResetCause::Verdict& verdict) {
  std::string rules = verdict.cause.rule;
  for (const ResetCause::Cause& one : verdict.beside) rules += " " + one.rule;
  return rules;
}

}  // namespace resetcausetest
