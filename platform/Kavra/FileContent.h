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

// Whether a text is on the disk before a call returns, or when the system comes to it: after a loss
// of power the file may then be as before, or empty.
enum class Durable { now, later };

// Puts `text` into a new file, which lies at `newPath` in the folder of `path`, and that in the
// place of `path`: whoever reads finds the old text or the new one. Which of them a loss of power
// leaves, storeFolder() settles. False with errno: the new file is gone then, and `path` is as it
// was.
bool replaceWith(const FileDescriptor& newFile, const std::string& newPath, std::string_view text,
                 const std::string& path, Durable durable = Durable::now) noexcept;

// The same for a file that one process at a time writes, which all may read as far as the umask
// lets them: through PATH.new, over what a process that died left there.
bool replaceFile(const std::string& path, std::string_view text, Durable durable = Durable::now);

// Has the names in the folder on the disk before it returns. False with errno.
bool storeFolder(const std::string& path) noexcept;

}  // namespace Kavra
