#include "resetcause/Request.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <string_view>
#include <vector>

#include "Kavra/Json/Text.h"
#include "Qel/Document.h"
#include "Qel/Failure.h"
#include "Qel/Number.h"
#include "resetcause/StateFile.h"

namespace ResetCause {

namespace {

constexpr std::size_t kMostNameOctets = 256;
constexpr std::size_t kMostUsersOctets = std::size_t{4} << 20;
constexpr char kEnd[] = ".json";

std::string userName(uid_t user) {
  std::vector<char> buffer(65536);
  passwd entry{};
  passwd* found = nullptr;
  const int error = ::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found);
  if (error != 0 || found == nullptr) return "user " + std::to_string(user);
  return std::string(found->pw_name).substr(0, kMostNameOctets);
}

std::optional<uid_t> userIn(const char* variable) {
  const char* text = std::getenv(variable);
  return text == nullptr ? std::nullopt : Qel::numberOf<uid_t>(text);
}

// The user of the login session, whatever became of it since.
std::optional<uid_t> userOfSession() {
  std::optional<std::string> text;
  (void)Qel::failureOf([&] { text = contentOf("/proc/self/loginuid", 64); });
  const auto user = text ? Qel::numberOf<uid_t>(trimmed(*text)) : std::nullopt;
  return user == std::numeric_limits<uid_t>::max() ? std::nullopt : user;
}

// By the root's own list of users, since whoever else knows them may be asked over the network.
std::string nameIn(const Root& root, uid_t user) {
  std::optional<std::string> users;
  (void)Qel::failureOf([&] { users = contentOf(root.path("/etc/passwd"), kMostUsersOctets); });
  for (std::string_view rest = users ? *users : std::string_view(); !rest.empty();) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    // NAME:x:NUMBER:...
    const std::string_view name = line.substr(0, line.find(':'));
    const std::string_view behind =
        line.substr(std::min(line.find(':', name.size() + 1), line.size()));
    if (behind.empty()) continue;
    const std::string_view number = behind.substr(1, behind.find(':', 1) - 1);
    if (Qel::numberOf<uid_t>(number) == user) return std::string(name.substr(0, kMostNameOctets));
  }
  return "user " + std::to_string(user);
}

// The owner, where that is neither root nor the owner of the folder.
std::optional<uid_t> strangerOf(const std::string& path, const std::string& folder) {
  struct stat file {};
  struct stat around {};
  if (::lstat(path.c_str(), &file) != 0 || ::stat(folder.c_str(), &around) != 0) return {};
  if (file.st_uid == 0 || file.st_uid == around.st_uid) return {};
  return file.st_uid;
}

}  // namespace

std::string Requests::folder() const { return root_.path(std::string(kStateFolder) + "/requests"); }
std::string Requests::path(const std::string& boot) const { return folder() + "/" + boot + kEnd; }

void Requests::add(const Request& request) const {
  const Qel::Document::Map document{{"boot", Qel::String(request.boot)},
                                    {"user", Qel::String(request.user)},
                                    {"reason", Qel::String(request.reason)},
                                    {"time", request.time}};
  writeState(path(request.boot), Kavra::Json::write(document, Kavra::Json::Form::pretty) + "\n");
}

void Requests::remove(const std::string& boot) const { removeState(path(boot)); }

std::optional<Request> Requests::of(const std::string& boot) const {
  const auto document = readState(path(boot));
  if (!document) return std::nullopt;
  const Qel::DocumentReader reader(*document);
  const auto text = [&](const char* name, std::size_t most) {
    return reader.member(name).readText(most).stdString();
  };
  Request request{text("boot", kMostNameOctets), text("user", kMostNameOctets),
                  text("reason", kMostReasonOctets), reader.member("time").readFiniteNumber()};
  if (request.boot != boot) throw SourceException("it is of another boot");
  if (const auto stranger = strangerOf(path(boot), folder()))
    request.user = nameIn(root_, *stranger);
  return request;
}

void Requests::keepOnly(const std::string& boot, const std::string& previousBoot) const {
  std::vector<std::string> names;
  (void)Qel::failureOf([&] { names = namesIn(folder()); });
  for (const std::string& name : names) {
    // Behind the end there is more where one was not written to its end.
    const std::string of = name.substr(0, name.find(kEnd));
    if (of == name || of == boot || of == previousBoot) continue;
    (void)Qel::failureOf([&] { removeState(folder() + "/" + name); });
  }
}

std::string loginUser() {
  auto user = userOfSession();
  // Only root can have been given these by sudo and pkexec.
  if (!user && ::getuid() == 0) user = userIn("SUDO_UID");
  if (!user && ::getuid() == 0) user = userIn("PKEXEC_UID");
  return userName(user.value_or(::getuid()));
}

}  // namespace ResetCause
