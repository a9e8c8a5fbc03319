#include "Kavra/Redis/ConnectionOptions.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <string_view>
#include <system_error>
#include <utility>

#include "Kavra/FileContent.h"
#include "Kavra/FileDescriptor.h"
#include "Kavra/KavraTrace.h"
#include "Kavra/Store.h"

namespace Kavra::Redis {

namespace {

constexpr std::size_t kMostBytes = 4096;

[[noreturn]] void failWith(const std::string& path, const std::string& problem) {
  throw StoreException(path + ": " + problem);
}

std::string contentOf(const FileDescriptor& file, const std::string& path) {
  try {
    if (auto text = readUpTo(file, kMostBytes)) return *std::move(text);
  } catch (const std::system_error& error) {
    failWith(path, error.code().message());
  }
  failWith(path, "too long for a user and a password");
}

void warnIfOthersMayRead(const FileDescriptor& file, const std::string& path) {
  struct stat facts = {};
  if (::fstat(file.fd(), &facts) != 0 || (facts.st_mode & (S_IRWXG | S_IRWXO)) == 0) return;
  trace(0, fmt::format("{}: mode {:o}: others than its owner may read the password", path,
                       facts.st_mode & 07777));
}

// The text up to the end of the line, which is taken off.
std::string takeLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  std::string line(text.substr(0, end));
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return line;
}

}  // namespace

Login Login::ofFile(const std::string& path) {
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) failWith(path, std::generic_category().message(errno));
  const std::string text = contentOf(file, path);
  std::string_view rest = text;
  Login login;
  login.user = takeLine(rest);
  login.password = takeLine(rest);
  if (login.user.empty() || login.password.empty() || !rest.empty()) {
    failWith(path, "expected two lines, a user and a password");
  }
  warnIfOthersMayRead(file, path);
  return login;
}

std::vector<Command> ConnectionOptions::loginCommands() const {
  std::vector<Command> commands;
  if (login) commands.push_back({"AUTH", login->user, login->password});
  commands.push_back({"PING"});
  return commands;
}

}  // namespace Kavra::Redis
