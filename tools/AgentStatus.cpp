#include "tools/AgentStatus.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <vector>

#include "Kavra/FileContent.h"
#include "Kavra/FileDescriptor.h"
#include "Kavra/Json/Text.h"
#include "Kavra/SocketAddress.h"
#include "Qel/Document.h"
#include "Qel/Escape.h"
#include "Qel/String.h"
#include "tools/Errors.h"

namespace Tools {

namespace {

using Kavra::Json::Form;
using Qel::Document;

constexpr std::size_t kMostOctets = std::size_t{1} << 20;
constexpr timeval kPatience{5, 0};

std::string onlySocket() {
  std::error_code error;
  std::vector<std::string> found;
  for (const auto& entry : std::filesystem::directory_iterator(kStatusFolder, error)) {
    if (entry.is_socket(error)) found.push_back(entry.path().string());
  }
  if (found.empty()) {
    throw CommandError(fmt::format("no agent has a status socket in {}", kStatusFolder));
  }
  if (found.size() > 1) {
    throw CommandError(fmt::format("several agents have one, name it: {}", fmt::join(found, ", ")));
  }
  return found.front();
}

[[noreturn]] void failWithErrno(const std::string& path) {
  const int error = errno;
  const char* meaning = error == ENOENT         ? ": no agent has its status socket there"
                        : error == ECONNREFUSED ? ": the agent has ended"
                        : error == EAGAIN       ? ": the agent does not answer"
                                                : "";
  throw CommandError(
      fmt::format("{}: {}{}", path, std::generic_category().message(error), meaning));
}

Kavra::FileDescriptor connectTo(const std::string& path) {
  const auto address = Kavra::unixAddressOf(path);
  if (!address) throw CommandError(path + ": no path of a socket");
  Kavra::FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  for (const int direction : {SO_SNDTIMEO, SO_RCVTIMEO}) {
    ::setsockopt(socket.fd(), SOL_SOCKET, direction, &kPatience, sizeof kPatience);
  }
  if (!socket || ::connect(socket.fd(), address->address(), address->size) != 0) {
    failWithErrno(path);
  }
  return socket;
}

std::string answerAt(const std::string& path) {
  const auto socket = connectTo(path);
  try {
    if (auto text = Kavra::readUpTo(socket, kMostOctets)) return *std::move(text);
  } catch (const std::system_error& error) {
    errno = error.code().value();
    failWithErrno(path);
  }
  throw CommandError(path + ": the answer is too long");
}

// The status of an agent; its "fresh" and "databases" are of their kinds.
Document statusAt(const std::string& path) {
  const std::string text = answerAt(path);
  try {
    Document status = Kavra::Json::read(text);
    if (status.memberAs<bool>("fresh") != nullptr &&
        status.memberAs<Document::List>("databases") != nullptr) {
      return status;
    }
  } catch (const Kavra::Json::Exception&) {
    // The same as any other text that is no status.
  }
  throw CommandError(path + ": what listens there tells no agent's status, or not all of it");
}

// A value as a person reads it, "-" for none.
std::string shown(const Document& value) {
  if (value.isNull()) return "-";
  if (const auto* flag = value.as<bool>()) return *flag ? "yes" : "no";
  if (const auto* text = value.as<Qel::String>()) return Qel::printableLine(text->view());
  return Qel::printableLine(Kavra::Json::write(value, Form::line));
}

std::string shown(const Document& map, std::string_view name) {
  const Document* value = map.member(name);
  return value == nullptr ? "-" : shown(*value);
}

std::vector<std::string> textsOf(const Document& status, std::string_view name) {
  std::vector<std::string> texts;
  const auto* elements = status.memberAs<Document::List>(name);
  if (elements == nullptr) return texts;
  for (const Document& element : *elements) {
    if (const auto* text = element.as<Qel::String>()) texts.push_back(text->stdString());
  }
  return texts;
}

void row(std::ostream& out, std::string_view name, std::string_view value) {
  out << fmt::format("{:<16}{}\n", name, value);
}

void printRows(const Document& status, std::ostream& out) {
  const auto* units = status.memberAs<Document::Map>("rows");
  if (units == nullptr) return;
  for (const auto& [unit, count] : *units) {
    row(out, "rows of unit " + Qel::printableLine(unit.view()), shown(count));
  }
}

void printDatabase(const Document& database, std::ostream& out) {
  out << '\n';
  row(out, "database", shown(database, "url"));
  for (const auto& [name, member] : {std::pair("  reachable", "reachable"),
                                     {"  problem", "problem"},
                                     {"  followed", "followed"},
                                     {"  read", "complete"},
                                     {"  age in s", "age"},
                                     {"  epoch", "epoch"},
                                     {"  last id", "lastId"},
                                     {"  refused", "quarantinedCount"},
                                     {"  withdrawn", "withdrawnCount"}}) {
    row(out, name, shown(database, member));
  }
  const auto* list = database.memberAs<Document::List>("quarantined");
  for (const Document& refused : list == nullptr ? Document::List{} : *list) {
    row(out, "  refused", shown(refused, "path") + ": " + shown(refused, "why"));
  }
  for (const std::string& path : textsOf(database, "withdrawn")) {
    row(out, "  withdrawn", Qel::printableLine(path));
  }
}

void printTable(const Document& status, std::ostream& out) {
  row(out, "cell", shown(status, "cell"));
  row(out, "fresh", shown(status, "fresh"));
  if (const Document* redundancy = status.member("redundancy")) {
    row(out, "redundancy",
        fmt::format("protocol {}, switchover capable: {}", shown(*redundancy, "protocol"),
                    shown(*redundancy, "switchoverCapable")));
  }
  row(out, "peer's history", shown(status, "peerMount"));
  printRows(status, out);
  for (const Document& database : *status.memberAs<Document::List>("databases")) {
    printDatabase(database, out);
  }
}

}  // namespace

void printAgentStatus(const std::string& path, bool asJson, std::ostream& out) {
  const Document status = statusAt(path.empty() ? onlySocket() : path);
  if (asJson) {
    out << Kavra::Json::writePrintable(status, Form::pretty);
  } else {
    printTable(status, out);
  }
  if (*status.memberAs<bool>("fresh")) return;
  const auto reasons = textsOf(status, "stale");
  throw CommandError(fmt::format("not all is fresh: {}", fmt::join(reasons, "; ")));
}

}  // namespace Tools
