#include "Kavra/Claim.h"

#include <fmt/format.h>

#include <algorithm>

namespace Kavra {

namespace {

bool isPrefix(const Qel::String& place) noexcept { return place.view().ends_with('/'); }

bool isWithin(const Qel::String& place, const Qel::String& other) noexcept {
  return place == other || (isPrefix(other) && place.view().starts_with(other.view()));
}

}  // namespace

bool Claim::covers(const Qel::String& path) const noexcept {
  return std::any_of(places.begin(), places.end(),
                     [&](const Qel::String& place) { return isWithin(path, place); });
}

bool Claim::overlaps(const Claim& other) const noexcept {
  const auto areWithin = [](const Claim& inner, const Claim& outer) {
    return std::any_of(inner.places.begin(), inner.places.end(),
                       [&](const Qel::String& place) { return outer.covers(place); });
  };
  return areWithin(*this, other) || areWithin(other, *this);
}

std::string Claim::name() const {
  const auto prefix = std::find_if(places.begin(), places.end(), isPrefix);
  return fmt::format("{}:{}:{}:{}", host.view(), boot.view(), file.view(),
                     prefix == places.end() ? "" : prefix->view());
}

Qel::String Claim::publisher() const {
  return fmt::format("the publisher of {} on {}", file.view(), host.view());
}

}  // namespace Kavra
