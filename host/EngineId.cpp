#include "host/EngineId.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <fstream>
#include <iterator>

#include "host/NetSnmp.h"

namespace Host {
namespace {

constexpr std::string_view kHexadecimal = "0123456789abcdefABCDEF";
constexpr std::string_view kPrefix{"\x80\x00\x7e\xd9\x80", 5};  // first bit set, 32473, format 128
constexpr std::size_t kDerived = 16;
constexpr std::size_t kShortestId = 5;
constexpr std::size_t kLongestId = 32;

bool isMachineId(std::string_view text) {
  constexpr std::size_t kDigits = 32;
  return text.size() == kDigits && text.find_first_not_of(kHexadecimal) == text.npos &&
         text.find_first_not_of('0') != text.npos;
}

const u_char* octetsOf(std::string_view text) {
  return reinterpret_cast<const u_char*>(text.data());
}

bool isAll(const std::string& octets, char octet) {
  return octets.find_first_not_of(octet) == octets.npos;
}

}  // namespace

std::optional<std::string> engineIdOf(std::string_view machineId, U32 cellId) {
  if (!isMachineId(machineId)) return std::nullopt;
  const std::string message = fmt::format("norvek-snmpd engine of cell {}", cellId);
  std::array<u_char, 32> hash{};
  std::size_t length = hash.size();
  const int failed = sc_generate_keyed_hash(
      usmHMAC192SHA256AuthProtocol, std::size(usmHMAC192SHA256AuthProtocol), octetsOf(machineId),
      static_cast<u_int>(machineId.size()), octetsOf(message), static_cast<u_int>(message.size()),
      hash.data(), &length);
  if (failed != SNMPERR_SUCCESS || length < kDerived) return std::nullopt;
  std::string id(kPrefix);
  id.append(hash.begin(), hash.begin() + kDerived);
  return id;
}

std::string machineIdIn(const std::string& file) {
  std::string text;
  std::ifstream stream(file);
  std::getline(stream, text);
  return text;
}

std::optional<std::string> engineIdOfHex(std::string_view digits) {
  if (digits.starts_with("0x")) digits.remove_prefix(2);
  if (digits.size() % 2 != 0 || digits.find_first_not_of(kHexadecimal) != digits.npos) return {};
  std::string id;
  for (; !digits.empty(); digits.remove_prefix(2)) {
    id.push_back(static_cast<char>(std::stoi(std::string(digits.substr(0, 2)), nullptr, 16)));
  }
  if (id.size() < kShortestId || id.size() > kLongestId || isAll(id, '\0') || isAll(id, '\xff'))
    return {};
  return id;
}

}  // namespace Host
