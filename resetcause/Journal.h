#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "resetcause/Findings.h"
#include "resetcause/LostPages.h"
#include "resetcause/Root.h"

struct sd_journal;

namespace ResetCause {

// The system's journal, as far as it can be read: files that are damaged or may not be read are
// named once, and passed over.
class Journal {
 public:
  // One entry, valid while its journal stays there.
  class Entry {
   public:
    explicit Entry(sd_journal* journal) : journal_(journal) {}

    // The field, cut to 64 KiB; empty where there is none.
    std::string field(const char* name) const;
    std::string message() const { return field("MESSAGE"); }
    double time() const;       // of the clock then, in seconds since 1970
    double monotonic() const;  // seconds since the start of its kernel
    // Whether nobody but root, init and the kernel could have written it.
    bool isTrusted() const;
    // How the journal orders entries: in which series, and where in it.
    std::pair<std::string, std::uint64_t> order() const;

   private:
    sd_journal* journal_;
  };

  // One boot that it tells of.
  struct Boot {
    std::string id;
    double start = 0;  // when its kernel started, by the clock of its first entry
    double last = 0;   // the time of its last entry
    std::string series =
        {};  // entries of one series are ordered by their numbers, never by the clock
    std::uint64_t first = 0;
  };

  // "FIELD=value"; those of one field are alternatives, those of several fields must all hold.
  using Matches = std::vector<std::string>;
  enum class Way { forward, backward };
  // Returns whether to go on.
  using See = std::function<bool(const Entry&)>;

  // Opens the files of the root's own machine, persistent ones and those of this boot.
  Journal(const Root& root, Findings& findings);
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;
  ~Journal();

  // Whether there is anything to read.
  bool isOpen() const noexcept { return journal_ != nullptr; }
  const std::string& place() const noexcept { return place_; }
  // Whether all that was read so far could be: a file may be cut meanwhile, or its disk fail.
  bool isWhole() const noexcept { return !lostPages_.any(); }
  // In no order of their own. One whose entries cannot be read is named and passed over.
  std::vector<Boot> boots(Findings& findings) const;
  // Shows the entries of a boot from its begin, or from its end.
  void look(const std::string& boot, const Matches& matches, Way way, const See& see) const;

 private:
  void collect(const std::string& folder, const Root& root, std::vector<std::string>& files,
               Findings& findings) const;

  std::vector<std::string> bootIds(Findings& findings) const;
  Boot bootOf(const std::string& id) const;

  const LostPages lostPages_;
  std::string place_;
  sd_journal* journal_ = nullptr;
};

}  // namespace ResetCause
