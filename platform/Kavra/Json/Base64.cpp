#include "Kavra/Json/Base64.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace Kavra::Json {

namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Four digits of up to three octets.
void appendGroup(std::string& text, std::string_view octets) {
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    const auto octet = i < octets.size() ? static_cast<unsigned char>(octets[i]) : 0U;
    bits = bits << 8U | octet;
  }
  for (std::size_t i = 0; i < 4; ++i) {
    text.push_back(i <= octets.size() ? kDigits[bits >> (18U - 6U * i) & 63U] : '=');
  }
}

// False when one of the four is no digit; padding counts as zero.
bool appendOctets(std::string& octets, std::string_view group, std::size_t count) {
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    const std::size_t digit = i <= count ? kDigits.find(group[i]) : 0;
    if (digit == std::string_view::npos) return false;
    bits = bits << 6U | static_cast<std::uint32_t>(digit);
  }
  for (std::size_t i = 0; i < count; ++i) {
    octets.push_back(static_cast<char>(bits >> (16U - 8U * i) & 0xffU));
  }
  return true;
}

}  // namespace

std::string toBase64(std::string_view octets) {
  std::string text;
  text.reserve((octets.size() + 2) / 3 * 4);
  for (; !octets.empty(); octets.remove_prefix(std::min<std::size_t>(3, octets.size()))) {
    appendGroup(text, octets.substr(0, 3));
  }
  return text;
}

std::optional<std::string> ofBase64(std::string_view text) {
  std::string octets;
  for (std::string_view rest = text; !rest.empty(); rest.remove_prefix(4)) {
    if (rest.size() < 4) return std::nullopt;
    const bool isLast = rest.size() == 4;
    const std::size_t padding = !isLast || rest[3] != '=' ? 0 : rest[2] == '=' ? 2 : 1;
    if (!appendOctets(octets, rest.substr(0, 4), 3 - padding)) return std::nullopt;
  }
  // What is left in the bits of a last digit would be lost on the way back.
  if (toBase64(octets) != text) return std::nullopt;
  return octets;
}

}  // namespace Kavra::Json
