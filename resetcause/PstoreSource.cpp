#include "resetcause/PstoreSource.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Qel/Number.h"
#include "resetcause/DumpText.h"

namespace ResetCause {

namespace {

constexpr std::size_t kMostDumpOctets = std::size_t{1} << 20;
constexpr std::size_t kMostCrashOctets = 4 * kMostDumpOctets;
constexpr std::size_t kMostDumpFiles = 2000;
// The mark of a boot that could not see all of them.
constexpr char kLeftOut[] = "dumps left out";
constexpr char kJoined[] = "dmesg.txt";

// The parts of one dump, or several dumps of one crash, that lie in one folder.
struct DumpFolder {
  std::string path;
  double made = 0;                 // when the folder was changed last
  std::vector<std::string> files;  // names of the dumps in it
};

double changedAt(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return 0;
  return static_cast<double>(status.st_mtim.tv_sec) +
         static_cast<double>(status.st_mtim.tv_nsec) / 1e9;
}

bool isFolder(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Compressed as the kernel could not undo it.
bool isCompressed(std::string_view name) { return name.ends_with(".z"); }

// Folders with dumps in them, and in folders of these. Names are numbers that grow with time: the
// newest come first, and are there when there is no room for more.
void collect(const std::string& path, int levels, std::vector<DumpFolder>& folders,
             std::size_t& left) {
  DumpFolder folder{path, changedAt(path), {}};
  const auto names = namesIn(path);
  for (auto name = names.rbegin(); name != names.rend() && left > 0; ++name) {
    const std::string inside = inFolder(path, *name);
    if (levels > 0 && isFolder(inside)) {
      collect(inside, levels - 1, folders, left);
    } else if (timeOfDump(*name) || *name == kJoined) {
      --left;
      folder.files.push_back(*name);
    }
  }
  std::ranges::reverse(folder.files);
  if (!folder.files.empty()) folders.push_back(std::move(folder));
}

// From 2038 on the kernel keeps the second with fewer digits behind it.
double secondOfErst(std::uint64_t id) {
  constexpr std::uint64_t kIsFrom2038 = std::uint64_t{1} << 63U;
  const std::uint64_t second = (id & kIsFrom2038) == 0 ? id >> 32U : (id & ~kIsFrom2038) >> 24U;
  return static_cast<double>(second);
}

// systemd-pstore calls it by the id of the dump in it, or by the second.
std::optional<double> timeOfFolder(const DumpFolder& folder) {
  constexpr std::uint64_t kFirstSecond = 946684800;
  constexpr std::uint64_t kFirstId = kFirstSecond << 32U;
  const auto number = Qel::numberOf<std::uint64_t>(folder.path.substr(folder.path.rfind('/') + 1));
  if (!number || *number < kFirstSecond) return std::nullopt;
  return *number < kFirstId ? static_cast<double>(*number) : secondOfErst(*number);
}

// Dumps of one second are of one crash.
std::map<double, std::vector<std::string>> crashesIn(const DumpFolder& folder) {
  std::map<double, std::vector<std::string>> crashes;
  for (const std::string& file : folder.files) {
    if (const auto time = timeOfDump(file)) crashes[*time].push_back(file);
  }
  // The parts joined are of use where they are alone.
  if (crashes.empty()) crashes[timeOfFolder(folder).value_or(folder.made)].push_back(kJoined);
  return crashes;
}

// Without a memory the clocks have to tell.
bool isOfThisReload(double time, const DumpFolder& folder, bool isMoved, const Boots& boots) {
  if (boots.cover(time)) return true;
  return isMoved && !boots.wentBack() && folder.made >= boots.start && boots.hasPrevious();
}

// Of a dump whose first one is of `time`. A stamp that is damaged leads nowhere.
double timeOf(const DumpText& dump, double time, const Boots& boots) {
  const double end = time + dump.behind;
  return boots.cover(time) && !boots.cover(end) ? time : end;
}

class Crash {
 public:
  Crash(const DumpFolder& folder, std::vector<std::string> files)
      : folder_(folder), files_(std::move(files)) {}

  bool isNew(Findings& findings) const {
    bool any = false;
    for (const std::string& file : files_) {
      const std::string id = file.substr(0, file.find('.'));
      // Where it lies in the system's own folder matters only where it has no name of its own.
      const std::string mark = file == kJoined ? folder_.path + "/" + file : id;
      if (findings.isNew("dump " + mark)) any = true;
    }
    return any;
  }
  std::string text(Findings& findings) const {
    std::string all;
    for (const std::string& file : files_) {
      const std::string path = folder_.path + "/" + file;
      if (isCompressed(file)) {
        findings.problem("pstore", path, "it is compressed");
        continue;
      }
      if (all.size() >= kMostCrashOctets) {
        findings.problem("pstore", path, "the rest of the dump is left out");
        break;
      }
      findings.attempt("pstore", path, [&] {
        if (const auto part = contentOf(path, kMostDumpOctets)) all += *part + "\n";
      });
    }
    return all;
  }
  std::string place() const { return folder_.path + "/" + files_.front(); }

 private:
  const DumpFolder& folder_;
  const std::vector<std::string> files_;
};

void addDump(const DumpText& dump, const Crash& crash, const std::optional<double>& time,
             Findings& findings) {
  if (dump.why == DumpText::Why::nothing) return;
  const Kind kind = dump.why == DumpText::Why::panic     ? Kind::panicDump
                    : dump.why == DumpText::Why::restart ? Kind::haltDump
                                                         : Kind::softwareWatchdog;
  Evidence one{kind, "pstore", crash.place(), dump.text, time};
  one.way = dump.way;
  findings.add(std::move(one));
}

}  // namespace

std::optional<double> timeOfDump(std::string_view fileName) {
  constexpr std::uint64_t kPartAndCount = 100000;
  const std::string_view bare = fileName.substr(0, fileName.find('.'));
  const auto idBehind = [&](std::string_view begin) {
    return bare.starts_with(begin) ? Qel::numberOf<std::uint64_t>(bare.substr(begin.size()))
                                   : std::nullopt;
  };
  if (const auto id = idBehind("dmesg-erst-")) return secondOfErst(*id);
  auto id = idBehind("dmesg-efi-");
  if (!id) id = idBehind("dmesg-efi_pstore-");  // as newer kernels name them
  if (!id) return std::nullopt;
  const std::uint64_t second = *id / kPartAndCount;
  return static_cast<double>(second);
}

void PstoreSource::look(const Boots& boots, Findings& findings) const {
  // What there was no room for then is not new now.
  const bool knows =
      findings.wasKnown(judgedMark(boots.previousId)) && !findings.wasKnown(kLeftOut);
  for (const char* place : {"/sys/fs/pstore", "/var/lib/systemd/pstore"}) {
    const bool isMoved = std::string_view(place) != "/sys/fs/pstore";
    std::vector<DumpFolder> folders;
    std::size_t left = kMostDumpFiles;
    findings.attempt(name(), root_.path(place),
                     [&] { collect(root_.path(place), 2, folders, left); });
    if (left == 0) {
      findings.problem(name(), root_.path(place), "too many dumps: the older ones are left out");
      findings.isNew(kLeftOut);
    }
    for (const DumpFolder& folder : folders) {
      for (const auto& [time, files] : crashesIn(folder)) {
        const Crash crash(folder, files);
        if (!crash.isNew(findings)) continue;
        if (!knows && !isOfThisReload(time, folder, isMoved, boots)) continue;
        const DumpText dump = readDump(crash.text(findings));
        // When the folder was made the crash was over.
        addDump(dump, crash,
                time == folder.made ? std::nullopt : std::optional(timeOf(dump, time, boots)),
                findings);
      }
    }
  }
}

}  // namespace ResetCause
