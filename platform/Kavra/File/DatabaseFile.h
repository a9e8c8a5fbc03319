#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>

#include "Kavra/FileDescriptor.h"
#include "Kavra/Json/Members.h"
#include "Qel/Document.h"
#include "Qel/Limits.h"
#include "Qel/String.h"

namespace Kavra::File {

// The JSON file {path: document, ...} that an embedded state database consists of, and the lock
// file beside it. Every problem is a StoreException that begins with "file:PATH: ".
//
// A path that is a symbolic link stands for the file that it leads to.
class DatabaseFile {
 public:
  using Documents = std::map<Qel::String, Qel::Document>;
  // Those that cannot be kept, by their paths.
  using Unreadable = std::map<Qel::String, Json::Member>;
  static constexpr std::size_t kMostBytes = Qel::Limits::kMostFileOctets;

  // Raises when the directory does not exist. The file need not.
  explicit DatabaseFile(const std::string& path);

  // The address as it was given, for messages: "file:PATH".
  const std::string& url() const noexcept { return url_; }
  const std::string& path() const noexcept { return path_; }
  const std::string& directory() const noexcept { return directory_; }
  const std::string& name() const noexcept { return name_; }

  // What stands in the file, at most kMostBytes; nothing when it does not exist.
  struct Content {
    std::string text;
    double modified;  // seconds since 1970 UTC
  };
  std::optional<Content> readContent() const;
  // What the documents in a text are, and which could not be kept: they refer to the text.
  struct Parsed {
    Documents documents;
    Unreadable unreadable;

    std::map<Qel::String, Qel::String> problems() const;
    std::size_t values() const;
  };
  // Raises for a text that is not such a JSON, or holds more than `most`.
  Parsed parse(const std::string& text, const Json::MostMembers& most = {}) const;
  // Raises for more than a reader takes.
  void needSize(const Parsed& parsed) const;

  // Puts a new file in the place of the old one, so that whoever reads finds the one or the other,
  // whole, and with the same owner, group and mode: whoever may not give it these is refused. What
  // root makes anew belongs to the owner of the directory. Those that could not be kept are written
  // as they stood. The caller holds the lock.
  void write(const Documents& documents, const Unreadable& unreadable = {}) const;
  // Waits a little for another writer. The lock lasts as long as the result. Whoever may replace
  // the file as its owner, as root or as one of the folder's group may hold it, whoever came first;
  // others cannot even open the lock file.
  [[nodiscard]] FileDescriptor lock() const;

  // Raises StoreException for this file.
  [[noreturn]] void fail(const std::string& problem) const;

 private:
  [[noreturn]] void failWithErrno(const std::string& what) const;
  // An empty one with the rights of that in whose place it comes.
  FileDescriptor newFile(const std::string& newPath) const;
  void copyRights(const struct stat& before, const FileDescriptor& file) const;
  void giveToFolder(const FileDescriptor& file) const;
  FileDescriptor openLock() const;
  // Gives the lock file, where it is the caller's to give, to the owner of the database and the
  // group of the directory, and lets that group open it where it may put files there.
  void shareLock(const FileDescriptor& lock) const;

  std::string url_;
  std::string path_;
  std::string directory_;
  std::string name_;
};

}  // namespace Kavra::File
