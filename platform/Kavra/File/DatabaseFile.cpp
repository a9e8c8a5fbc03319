#include "Kavra/File/DatabaseFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <new>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "Kavra/DocumentSize.h"
#include "Kavra/FileContent.h"
#include "Kavra/Json/Text.h"
#include "Kavra/Store.h"

namespace Kavra::File {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLockPatience{2000};
constexpr milliseconds kLockPause{10};
constexpr mode_t kNewFileMode = 0644;
constexpr mode_t kOwnerMode = 0600;
constexpr mode_t kAllModes = 07777;

std::string errnoText(int error) { return std::generic_category().message(error); }

double secondsOf(const struct stat& facts) {
  return static_cast<double>(facts.st_mtim.tv_sec) +
         1e-9 * static_cast<double>(facts.st_mtim.tv_nsec);
}

}  // namespace

DatabaseFile::DatabaseFile(const std::string& path) : url_("file:" + path), path_(path) {
  std::error_code error;
  const std::filesystem::path resolved = std::filesystem::weakly_canonical(path, error);
  if (!error) path_ = resolved.string();
  const std::filesystem::path whole = path_;
  name_ = whole.filename().string();
  directory_ = whole.parent_path().string();
  if (directory_.empty()) directory_.push_back('.');
  if (!std::filesystem::is_directory(directory_, error)) {
    fail(fmt::format("directory {} does not exist", directory_));
  }
  if (name_.empty() || std::filesystem::is_directory(whole, error)) fail("is a directory");
}

void DatabaseFile::fail(const std::string& problem) const {
  throw StoreException(fmt::format("{}: {}", url_, problem));
}

void DatabaseFile::failWithErrno(const std::string& what) const {
  fail(fmt::format("{}: {}", what, errnoText(errno)));
}

std::optional<DatabaseFile::Content> DatabaseFile::readContent() const {
  // Not blocking, or a pipe of that name would hold up the process.
  const FileDescriptor file(::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file && errno == ENOENT) return std::nullopt;
  if (!file) failWithErrno("cannot be opened");
  struct stat facts {};
  if (::fstat(file.fd(), &facts) != 0) failWithErrno("cannot be read");
  if (!S_ISREG(facts.st_mode)) fail("is not a regular file");
  try {
    auto text = readUpTo(file, kMostBytes);
    if (!text) fail(fmt::format("is larger than {} bytes", kMostBytes));
    return Content{std::move(*text), secondsOf(facts)};
  } catch (const std::system_error& error) {
    fail(fmt::format("cannot be read: {}", error.code().message()));
  } catch (const std::bad_alloc&) {
    fail(fmt::format("cannot be read: {}", errnoText(ENOMEM)));
  }
}

DatabaseFile::Parsed DatabaseFile::parse(const std::string& text,
                                         const Json::MostMembers& most) const {
  if (text.empty()) fail("is empty, not the JSON of a database");
  std::vector<Json::Member> members;
  try {
    members = Json::readMembers(text, most);
  } catch (const Json::Exception& error) {
    fail(error.what());
  }
  Parsed parsed;
  for (Json::Member& member : members) {
    if (member.problem.empty()) {
      parsed.documents.emplace(member.name, std::move(member.document));
    } else {
      parsed.unreadable.emplace(member.name, std::move(member));
    }
  }
  return parsed;
}

std::map<Qel::String, Qel::String> DatabaseFile::Parsed::problems() const {
  std::map<Qel::String, Qel::String> problems;
  for (const auto& [path, member] : unreadable) problems.emplace(path, member.problem);
  return problems;
}

std::size_t DatabaseFile::Parsed::values() const {
  std::size_t values = 0;
  for (const auto& [path, document] : documents) values += valuesOf(document);
  for (const auto& [path, member] : unreadable) values += member.values;
  return values;
}

void DatabaseFile::needSize(const Parsed& parsed) const {
  using Qel::Limits::kMostFileDocuments;
  using Qel::Limits::kMostFileValues;
  if (parsed.documents.size() + parsed.unreadable.size() > kMostFileDocuments) {
    fail(fmt::format("would hold more than {} documents", kMostFileDocuments));
  }
  if (parsed.values() > kMostFileValues) {
    fail(fmt::format("would hold more than {} values", kMostFileValues));
  }
}

void DatabaseFile::write(const Documents& documents, const Unreadable& unreadable) const {
  std::map<Qel::String, std::string> members;
  std::string text;
  try {
    for (const auto& [path, document] : documents) {
      members.emplace(path, Json::write(document, Json::Form::pretty, 1));
    }
    for (const auto& [path, member] : unreadable) members.emplace(path, member.text);
    text = Json::writeMembers(members) + '\n';
  } catch (const Json::Exception& error) {
    fail(error.what());
  }
  if (text.size() > kMostBytes) fail(fmt::format("would be larger than {} bytes", kMostBytes));
  const std::string newPath = fmt::format("{}/.{}.new", directory_, name_);
  const FileDescriptor file = newFile(newPath);
  if (!replaceWith(file, newPath, text, path_)) failWithErrno("cannot be written");
  if (!storeFolder(directory_)) failWithErrno("was replaced, but not safely stored");
}

FileDescriptor DatabaseFile::newFile(const std::string& newPath) const {
  // One that is there was left by a writer that died: the lock says that nobody is at it.
  ::unlink(newPath.c_str());
  struct stat before {};
  const bool replaces = ::stat(path_.c_str(), &before) == 0;
  // Nobody looks into it before it has the rights of the file in whose place it comes.
  const mode_t mode = replaces ? kOwnerMode : kNewFileMode;
  FileDescriptor file(::open(newPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
  if (!file) failWithErrno("cannot be written");
  if (!replaces) {
    giveToFolder(file);
    return file;
  }
  try {
    copyRights(before, file);
  } catch (const StoreException&) {
    ::unlink(newPath.c_str());
    throw;
  }
  return file;
}

void DatabaseFile::copyRights(const struct stat& before, const FileDescriptor& file) const {
  if (::fchown(file.fd(), before.st_uid, before.st_gid) != 0) {
    if (errno != EPERM) failWithErrno("cannot be written");
    fail(fmt::format("belongs to user {} and group {}, to whom its successor cannot be given",
                     before.st_uid, before.st_gid));
  }
  if (::fchmod(file.fd(), before.st_mode & kAllModes) != 0) failWithErrno("cannot be written");
}

void DatabaseFile::giveToFolder(const FileDescriptor& file) const {
  struct stat folder {};
  if (::geteuid() != 0 || ::stat(directory_.c_str(), &folder) != 0) return;
  // Where root may not, the file is its own.
  [[maybe_unused]] const int given = ::fchown(file.fd(), folder.st_uid, folder.st_gid);
}

FileDescriptor DatabaseFile::openLock() const {
  const std::string lockPath = path_ + ".lock";
  constexpr int kFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  FileDescriptor file(::open(lockPath.c_str(), kFlags));
  if (!file && errno == ENOENT) {
    file = FileDescriptor(::open(lockPath.c_str(), kFlags | O_CREAT, kOwnerMode));
  }
  if (!file) failWithErrno("the lock file " + lockPath + " cannot be opened");
  shareLock(file);
  return file;
}

void DatabaseFile::shareLock(const FileDescriptor& lock) const {
  struct stat facts {};
  struct stat folder {};
  if (::fstat(lock.fd(), &facts) != 0 || ::stat(directory_.c_str(), &folder) != 0) return;
  // Something else, to which root might be led by a link, is nobody's to give away.
  const bool isOurs = S_ISREG(facts.st_mode) && facts.st_nlink == 1 && facts.st_size == 0 &&
                      facts.st_uid == ::geteuid();
  if (!isOurs) return;
  // In a folder with the sticky bit a file is replaced by its owner alone. Others never get a
  // right, though they may write to the folder: whoever can open the lock can hold it for good.
  const bool isForGroup = (folder.st_mode & S_ISVTX) == 0 && (folder.st_mode & S_IWGRP) != 0;
  mode_t mode = kOwnerMode;
  if (isForGroup) mode |= S_IRGRP | S_IWGRP;
  struct stat database {};
  const bool exists = ::stat(path_.c_str(), &database) == 0;
  const uid_t owner = facts.st_uid == 0 ? (exists ? database : folder).st_uid : facts.st_uid;
  if ((facts.st_uid != owner || facts.st_gid != folder.st_gid) &&
      ::fchown(lock.fd(), owner, folder.st_gid) != 0) {
    mode &= ~static_cast<mode_t>(S_IRWXG);
  }
  if ((facts.st_mode & kAllModes) != mode) ::fchmod(lock.fd(), mode);
}

FileDescriptor DatabaseFile::lock() const {
  FileDescriptor file = openLock();
  const auto deadline = std::chrono::steady_clock::now() + kLockPatience;
  while (::flock(file.fd(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) failWithErrno("cannot be locked");
    if (std::chrono::steady_clock::now() >= deadline) fail("is locked by another writer");
    std::this_thread::sleep_for(kLockPause);
  }
  return file;
}

}  // namespace Kavra::File
