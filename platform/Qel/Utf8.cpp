#include "Qel/Utf8.h"

namespace Qel {

namespace {

// How a sequence begins, how many octets follow, and the range of the first of those.
struct Lead {
  unsigned char first, last;
  std::size_t following;
  unsigned char low, high;
};

constexpr Lead kLeads[] = {
    {0x00, 0x7f, 0, 0x00, 0x00}, {0xc2, 0xdf, 1, 0x80, 0xbf}, {0xe0, 0xe0, 2, 0xa0, 0xbf},
    {0xe1, 0xec, 2, 0x80, 0xbf}, {0xed, 0xed, 2, 0x80, 0x9f}, {0xee, 0xef, 2, 0x80, 0xbf},
    {0xf0, 0xf0, 3, 0x90, 0xbf}, {0xf1, 0xf3, 3, 0x80, 0xbf}, {0xf4, 0xf4, 3, 0x80, 0x8f},
};

const Lead* leadOf(unsigned char octet) noexcept {
  for (const Lead& lead : kLeads) {
    if (octet >= lead.first && octet <= lead.last) return &lead;
  }
  return nullptr;
}

}  // namespace

std::size_t utf8CharacterSize(std::string_view text) noexcept {
  const Lead* lead = text.empty() ? nullptr : leadOf(static_cast<unsigned char>(text.front()));
  if (lead == nullptr || text.size() <= lead->following) return 0;
  for (std::size_t i = 1; i <= lead->following; ++i) {
    const auto octet = static_cast<unsigned char>(text[i]);
    const unsigned char low = i == 1 ? lead->low : 0x80;
    const unsigned char high = i == 1 ? lead->high : 0xbf;
    if (octet < low || octet > high) return 0;
  }
  return lead->following + 1;
}

char32_t utf8CodePoint(std::string_view character) noexcept {
  const auto octetAt = [&](std::size_t i) { return static_cast<unsigned char>(character[i]); };
  if (character.size() == 1) return octetAt(0);
  // The first of n octets has n ones and a zero in front, those that follow have 10.
  char32_t point = octetAt(0) & (0xffU >> (character.size() + 1));
  for (std::size_t i = 1; i < character.size(); ++i) point = point << 6 | (octetAt(i) & 0x3fU);
  return point;
}

bool isUtf8(std::string_view text) noexcept {
  while (!text.empty()) {
    const std::size_t size = utf8CharacterSize(text);
    if (size == 0) return false;
    text.remove_prefix(size);
  }
  return true;
}

}  // namespace Qel
