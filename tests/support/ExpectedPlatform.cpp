#include "support/ExpectedPlatform.h"

#include <algorithm>

namespace expected {

void Reload::push(const std::string& description, double time) {
  causes.push_back({causes.empty() ? 0 : causes.back().key + 1, description, time});
}

bool Reload::del(Number key) {
  return std::erase_if(causes, [key](const Cause& cause) { return cause.key == key; }) != 0;
}

bool Reload::replace(const std::vector<Cause>& replacement) {
  std::vector<Cause> numbered = replacement;
  Number key = 0;
  for (Cause& cause : numbered) cause.key = key++;
  const auto same = [](const Cause& a, const Cause& b) {
    return a.key == b.key && a.description == b.description && !(a.time < b.time) &&
           !(b.time < a.time);
  };
  if (std::equal(causes.begin(), causes.end(), numbered.begin(), numbered.end(), same)) {
    return false;
  }
  causes = std::move(numbered);
  return true;
}

Cause Reload::cause(Number key) const {
  for (const Cause& cause : causes) {
    if (cause.key == key) return cause;
  }
  return {};
}

ReloadPtr History::reload(Number index) const {
  const auto found = reloads.find(index);
  return found == reloads.end() ? nullptr : found->second;
}

}  // namespace expected
