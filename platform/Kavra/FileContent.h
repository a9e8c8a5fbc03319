#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "Kavra/FileDescriptor.h"

namespace Kavra {

// What there is to be read from the descriptor, up to its end; nothing when that is more than
// `most` octets, which is less than SIZE_MAX. Reads no more than one octet beyond those. Raises
// std::system_error.
std::optional<std::string> readUpTo(const FileDescriptor& file, std::size_t most);

// Writes all of `text` and has it on the disk before it returns. False with errno.
bool store(const FileDescriptor& file, std::string_view text) noexcept;

// Has the names in the folder on the disk before it returns. False with errno.
bool storeFolder(const std::string& path) noexcept;

}  // namespace Kavra
