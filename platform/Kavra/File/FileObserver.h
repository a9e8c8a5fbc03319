#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "Kavra/File/DatabaseFile.h"
#include "Kavra/File/DirectoryWatch.h"
#include "Kavra/File/FileFacts.h"
#include "Qel/String.h"

namespace Kavra::File {

// How to have a directory watched; as DirectoryWatch's constructor.
using WatchCall =
    std::function<DirectoryWatch(const std::string& directory, const std::string& name)>;

// How a database file is looked at.
struct LookOptions {
  FactsCall facts = factsOf;
  WatchCall watch = [](const std::string& directory, const std::string& name) {
    return DirectoryWatch(directory, name);
  };
  // Seconds from one look to the next where nothing is told of, and where something is wrong.
  double lookEvery = 4.5;
  double retryEvery = 1.0;
};

// What a look at a database file found.
struct Finding {
  // Where the path leads now; nothing where it leads nowhere.
  std::optional<DatabaseFile> file;
  // Nothing where there is no file, or a problem.
  std::optional<DatabaseFile::Content> content;
  std::string problem;    // why the file cannot be read; empty otherwise
  std::string unwatched;  // why its directory cannot be watched; empty otherwise
  // The same where the directory is there: until a watch is left for it, changes are found by
  // looking every LookOptions::retryEvery seconds.
  std::string noWatchLeft;

  // What the content means, where somebody looked for that: documents, why it is not the text of a
  // database, or neither where there was no memory for them. Plain values.
  struct Meaning {
    DatabaseFile::Documents documents;
    std::map<Qel::String, Qel::String> problems;  // of those that could not be kept
  };
  std::optional<Meaning> meaning;
  std::string misfit;
};

// Looks at the database file that a path leads to, whatever links and mounts are on the way at the
// moment, and waits for the next look: until the directory tells of a change, or for a time, since
// a directory tells nothing of its path, and a network file system nothing of other machines.
//
// A look without news costs two system calls and reads nothing; where no watch is left for the
// directory a third one, to have it watched as soon as there is one. Used by one thread at a time,
// which every call may block for as long as the file system does.
class FileObserver {
 public:
  FileObserver(const std::string& path, LookOptions options)
      : path_(path), options_(std::move(options)) {}

  // What there is now; nothing when that is what the last look that found something told.
  std::optional<Finding> look();
  // Has the next look come soon, read the file, and tell what it finds.
  void forget();
  // Waits until it is time for the next look, or `wakeFd` can be read from.
  void wait(int wakeFd);

 private:
  // A finding in a few octets.
  struct Digest {
    bool exists = false;
    std::size_t size = 0;
    std::size_t hash = 0;
    double modified = 0;
    std::string problem;
    bool isWatched = true;
    friend bool operator==(const Digest& a, const Digest& b) = default;
  };

  static Digest digestOf(const Finding& finding);
  Finding read();
  // Has the directory of that file watched, unless it is.
  void watch(const DatabaseFile& file);
  // Whether the directory is for which no watch was left at the last look.
  bool isWatchedNow();
  void takeEvents();

  const std::string path_;
  const LookOptions options_;
  std::optional<DirectoryWatch> watch_;
  FileFacts watched_;     // the directory's
  FileFacts file_;        // at the last look
  bool stirred_ = true;   // something may have happened since
  bool settled_ = false;  // read once more after the last change
  bool well_ = true;
  std::optional<DatabaseFile> wanted_;  // whose directory no watch was left for
  std::optional<Digest> told_;
};

}  // namespace Kavra::File
