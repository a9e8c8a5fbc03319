#include "host/HostAccess.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <new>
#include <string_view>

namespace Host {
namespace {

// libwrap takes no more than 2047 octets for one rule, and what follows them for another.
constexpr std::size_t kLongestRule = 2000;

// What follows the first colon; one within brackets belongs to an IPv6 address.
std::optional<std::string_view> behindColon(std::string_view text) {
  int depth = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '[') ++depth;
    if (text[at] == ']') --depth;
    if (text[at] == ':' && depth == 0) return text.substr(at + 1);
  }
  return {};
}

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = std::min(text.find_first_not_of(" \t"), text.size());
  return text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}

// Of `daemons : sources : option ...`, whether there are options that do more than answer.
bool hasEffects(std::string_view rule) {
  if (rule.starts_with('#')) return false;
  const auto sources = behindColon(rule);
  const auto options = sources ? behindColon(*sources) : std::nullopt;
  return options && trimmed(*options) != "allow" && trimmed(*options) != "deny";
}

bool onlyAnswer(std::istream& rules) {
  std::string rule;
  for (std::string line; std::getline(rules, line);) {
    const bool goesOn = line.ends_with('\\');
    if (goesOn) line.pop_back();
    rule += line;
    if (rule.size() > kLongestRule || rule.find('\0') != std::string::npos) return false;
    if (goesOn) continue;
    if (hasEffects(rule)) return false;
    rule.clear();
  }
  return !rules.bad() && !hasEffects(rule);
}

// Whether all that the file does is to answer; one that is not there does.
bool onlyAnswers(const std::string& file) {
  struct stat found {};
  if (::stat(file.c_str(), &found) != 0) return errno == ENOENT;
  if (!S_ISREG(found.st_mode)) return false;
  std::ifstream rules(file, std::ios::binary);
  return rules.is_open() && onlyAnswer(rules);
}

}  // namespace

std::optional<bool> HostAccess::known(const Source& source) noexcept {
  now_ = monotonic_();
  try {
    if (!looked_ || now_ >= *looked_ + kLookInterval) {
      look();
      looked_ = now_;
    }
  } catch (const std::bad_alloc&) {
    forgetAll();
  }
  const auto found = answers_.find(source);
  if (found == answers_.end() || now_ >= found->second.until) return {};
  return found->second.isAllowed;
}

void HostAccess::learned(const Source& source, bool isAllowed) noexcept {
  if (!mayKeep_) return;
  if (answers_.size() >= kMost) {
    const auto ending = [](const auto& kept) { return kept.second.until; };
    answers_.erase(std::ranges::min_element(answers_, {}, ending));
  }
  try {
    answers_.insert_or_assign(source, Answer{isAllowed, now_ + kAge});
  } catch (const std::bad_alloc&) {
    forgetAll();
  }
}

void HostAccess::forgetAll() noexcept {
  answers_.clear();
  stamps_.clear();
  looked_.reset();
  mayKeep_ = false;
}

// The times are both: one tells of what was written, the other of rights and of a time set back.
HostAccess::Stamp HostAccess::stampOf(const std::string& file) {
  struct stat found {};
  if (::stat(file.c_str(), &found) != 0) return {errno};
  return {0,
          static_cast<std::int64_t>(found.st_dev),
          static_cast<std::int64_t>(found.st_ino),
          found.st_size,
          found.st_mtim.tv_sec,
          found.st_mtim.tv_nsec,
          found.st_ctim.tv_sec,
          found.st_ctim.tv_nsec};
}

void HostAccess::look() {
  std::vector<Stamp> stamps;
  std::ranges::transform(files_, std::back_inserter(stamps), stampOf);
  if (stamps == stamps_) return;
  forgetAll();
  stamps_ = std::move(stamps);
  mayKeep_ = std::ranges::all_of(files_, onlyAnswers);
}

}  // namespace Host
