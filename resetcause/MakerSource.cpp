#include "resetcause/MakerSource.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <system_error>

#include "Kavra/Json/Text.h"
#include "Qel/Document.h"
#include "resetcause/Child.h"

namespace ResetCause {

namespace {

constexpr std::size_t kMostMakerOctets = 65536;
constexpr std::size_t kMostCauseOctets = 512;
constexpr double kPatience = 10;  // seconds

// Of root's, or of whoever runs this, and not to be changed by those of `others`.
void needOurs(const struct stat& status, mode_t others) {
  const bool isOurs = status.st_uid == 0 || status.st_uid == ::geteuid();
  if (!isOurs || (status.st_mode & others) != 0) {
    throw SourceException("others than root may change it");
  }
}

// Clocks of hardware are a little off; where that of the machine was not set, nobody knows.
bool isOfAnotherReload(const Evidence& one, const Boots& boots) {
  constexpr double kSlack = 120;  // seconds
  if (!one.time || !boots.begin() || !boots.cover(*boots.begin())) return false;
  return !boots.cover(*one.time - kSlack) && !boots.cover(*one.time) &&
         !boots.cover(*one.time + kSlack);
}

}  // namespace

std::optional<Evidence> readMaker(std::string_view json, const std::string& place) {
  const Qel::Document document = Kavra::Json::read(json);
  const Qel::DocumentReader reader(document);
  reader.needOnly({"cause", "time", "detail"});
  const Qel::DocumentReader cause = reader.member("cause");
  if (cause.document().isNull()) return std::nullopt;
  Evidence one{Kind::maker, "maker", place, cause.readText(kMostCauseOctets).stdString()};
  if (one.text.empty()) cause.fail("it is empty");
  if (const auto time = reader.optionalMember("time")) {
    one.time = time->readFiniteNumber();
  }
  if (const auto detail = reader.optionalMember("detail")) {
    one.place += ": " + detail->readText(kMostCauseOctets).stdString();
  }
  return one;
}

std::optional<Evidence> askMaker(const std::string& program, double seconds) {
  struct stat status {};
  if (::stat(program.c_str(), &status) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
    throw std::system_error(errno, std::generic_category());
  }
  needOurs(status, S_IWGRP | S_IWOTH);
  return readMaker(outputOf(program, kMostMakerOctets, seconds), program);
}

void MakerSource::look(const Boots& boots, Findings& findings) const {
  const auto add = [&](const std::optional<Evidence>& one) {
    if (!one) return;
    if (isOfAnotherReload(*one, boots)) throw SourceException("its time is of another reload");
    findings.add(*one);
  };
  const std::string file = root_.path(kFile);
  findings.attempt(name(), file, [&] {
    const auto text = contentOf(file, kMostMakerOctets);
    if (!text) return;
    struct stat status {};
    if (::lstat(file.c_str(), &status) != 0)
      throw std::system_error(errno, std::generic_category());
    needOurs(status, S_IWOTH);
    add(readMaker(*text, file));
  });
  if (!root_.isThisMachine()) return;
  findings.attempt(name(), kProgram, [&] { add(askMaker(kProgram, kPatience)); });
}

}  // namespace ResetCause
