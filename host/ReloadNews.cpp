#include "host/ReloadNews.h"

#include <algorithm>

namespace Host {

bool ReloadNews::causesAre(U32 unit, std::optional<Digest> causes) {
  units_[unit].causes = causes;
  return causes && told_.try_emplace(unit, *causes).second;
}

bool ReloadNews::isNews(U32 number, const Unit& unit) const {
  return unit.causes && told_.at(number) != *unit.causes;
}

std::vector<U32> ReloadNews::take(double now) {
  std::vector<U32> news;
  for (auto& [number, unit] : units_) {
    if (!isNews(number, unit) || now < unit.quietUntil) continue;
    told_[number] = *unit.causes;
    unit.quietUntil = now + kInterval;
    news.push_back(number);
  }
  return news;
}

std::optional<double> ReloadNews::next() const {
  std::optional<double> next;
  for (const auto& [number, unit] : units_) {
    if (isNews(number, unit)) next = std::min(next.value_or(unit.quietUntil), unit.quietUntil);
  }
  return next;
}

}  // namespace Host
