#include "resetcause/Journal.h"

#include <systemd/sd-journal.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>
#include <tuple>

#include "Qel/Failure.h"
#include "Qel/Number.h"

namespace ResetCause {

namespace {

constexpr std::size_t kMostFieldOctets = 65536;
constexpr std::size_t kMostJournalFiles = 1000;
constexpr std::size_t kMostBoots = 5000;
constexpr double kMicro = 1e-6;

void needGood(int result) {
  if (result < 0) throw std::system_error(-result, std::generic_category());
}

bool isJournalFile(std::string_view name) {
  return name.starts_with("system") && (name.ends_with(".journal") || name.ends_with(".journal~"));
}

// The files that can be opened, each for itself: together, one that cannot would hide the others.
bool canBeOpened(const std::string& file, Findings& findings) {
  const std::array<const char*, 2> paths{file.c_str(), nullptr};
  bool can = false;
  findings.attempt("journal", file, [&] {
    sd_journal* journal = nullptr;
    needGood(sd_journal_open_files(&journal, const_cast<const char**>(paths.data()), 0));
    sd_journal_close(journal);
    can = true;
  });
  return can;
}

// The machine's own id; empty where nobody knows.
std::string machineOf(const Root& root) {
  std::optional<std::string> text;
  (void)Qel::failureOf([&] { text = contentOf(root.path("/etc/machine-id"), 64); });
  std::string id(trimmed(text.value_or("")));
  return isId(id) ? id : "";
}

bool isMachineFolder(std::string_view name, std::string_view machine) {
  return machine.empty() ? isId(name) : name == machine;
}

}  // namespace

std::string Journal::Entry::field(const char* name) const {
  const void* data = nullptr;
  std::size_t size = 0;
  if (sd_journal_get_data(journal_, name, &data, &size) < 0) return {};
  const std::string_view whole(static_cast<const char*>(data), size);
  return std::string(whole.substr(std::min(std::strlen(name) + 1, whole.size())));
}

double Journal::Entry::time() const {
  std::uint64_t micro = 0;
  needGood(sd_journal_get_realtime_usec(journal_, &micro));
  return static_cast<double>(micro) * kMicro;
}

double Journal::Entry::monotonic() const {
  std::uint64_t micro = 0;
  sd_id128_t boot{};
  needGood(sd_journal_get_monotonic_usec(journal_, &micro, &boot));
  return static_cast<double>(micro) * kMicro;
}

bool Journal::Entry::isTrusted() const {
  const std::string user = field("_UID");
  return user.empty() || user == "0";
}

std::pair<std::string, std::uint64_t> Journal::Entry::order() const {
  char* text = nullptr;
  needGood(sd_journal_get_cursor(journal_, &text));
  const std::unique_ptr<char, void (*)(void*)> freed(text, std::free);
  // "s=SERIES;i=NUMBER;...", the number in hexadecimal digits.
  const std::string_view cursor(text);
  const std::size_t end = cursor.find(";i=");
  if (!cursor.starts_with("s=") || end == std::string_view::npos) {
    throw SourceException("an entry has no number");
  }
  return {std::string(cursor.substr(2, end - 2)), std::strtoull(text + end + 3, nullptr, 16)};
}

Journal::Journal(const Root& root, Findings& findings) : place_(root.path("/var/log/journal")) {
  std::vector<std::string> files;
  for (const char* folder : {"/var/log/journal", "/run/log/journal"}) {
    findings.attempt("journal", root.path(folder),
                     [&] { collect(root.path(folder), root, files, findings); });
  }
  std::erase_if(files, [&](const std::string& file) { return !canBeOpened(file, findings); });
  if (files.empty()) return;
  std::vector<const char*> paths;
  paths.reserve(files.size() + 1);
  for (const std::string& file : files) paths.push_back(file.c_str());
  paths.push_back(nullptr);
  findings.attempt("journal", place_, [&] {
    needGood(sd_journal_open_files(&journal_, paths.data(), 0));
    needGood(sd_journal_set_data_threshold(journal_, kMostFieldOctets));
  });
}

Journal::~Journal() { sd_journal_close(journal_); }

void Journal::collect(const std::string& folder, const Root& root, std::vector<std::string>& files,
                      Findings& findings) const {
  const std::string machine = machineOf(root);
  for (const std::string& name : namesIn(folder)) {
    if (!isMachineFolder(name, machine)) continue;
    const std::string inside = inFolder(folder, name);
    for (const std::string& file : namesIn(inside)) {
      if (!isJournalFile(file)) continue;
      if (files.size() == kMostJournalFiles) {
        findings.problem("journal", inside, "too many files: the rest is not looked at");
        return;
      }
      files.push_back(inFolder(inside, file));
    }
  }
}

std::vector<Journal::Boot> Journal::boots(Findings& findings) const {
  if (!isOpen()) return {};
  std::vector<Boot> boots;
  for (const std::string& id : bootIds(findings)) {
    findings.attempt("journal", place_ + ", boot " + id, [&] {
      Boot boot = bootOf(id);
      if (!boot.series.empty()) boots.push_back(std::move(boot));
    });
  }
  return boots;
}

std::vector<std::string> Journal::bootIds(Findings& findings) const {
  std::vector<std::string> ids;
  needGood(sd_journal_query_unique(journal_, "_BOOT_ID"));
  const void* data = nullptr;
  std::size_t size = 0;
  constexpr std::string_view kField = "_BOOT_ID=";
  while (sd_journal_enumerate_unique(journal_, &data, &size) > 0) {
    const std::string_view whole(static_cast<const char*>(data), size);
    if (!whole.starts_with(kField) || !isId(whole.substr(kField.size()))) continue;
    if (ids.size() == kMostBoots) {
      findings.problem("journal", place_, "too many boots: the rest is not looked at");
      break;
    }
    ids.emplace_back(whole.substr(kField.size()));
  }
  return ids;
}

Journal::Boot Journal::bootOf(const std::string& id) const {
  Boot boot{.id = id};
  look(id, {}, Way::forward, [&](const Entry& first) {
    // By a clock that was not set it may be just before 1970.
    boot.start = std::max(0.0, first.time() - first.monotonic());
    std::tie(boot.series, boot.first) = first.order();
    return false;
  });
  look(id, {}, Way::backward, [&](const Entry& last) {
    boot.last = last.time();
    return false;
  });
  return boot;
}

void Journal::look(const std::string& boot, const Matches& matches, Way way, const See& see) const {
  if (!isOpen()) return;
  sd_journal_flush_matches(journal_);
  const auto add = [&](const std::string& match) {
    needGood(sd_journal_add_match(journal_, match.data(), match.size()));
  };
  add("_BOOT_ID=" + boot);
  for (const std::string& match : matches) add(match);
  const bool forward = way == Way::forward;
  needGood(forward ? sd_journal_seek_head(journal_) : sd_journal_seek_tail(journal_));
  const auto step = [&] {
    const int result = forward ? sd_journal_next(journal_) : sd_journal_previous(journal_);
    needGood(result);
    return result > 0;
  };
  while (step()) {
    if (!see(Entry(journal_))) return;
  }
}

}  // namespace ResetCause
