#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Qel/Exception.h"

namespace ResetCause {

// What a source cannot take as it is; the text says why.
class SourceException : public Qel::Exception {
 public:
  using Qel::Exception::Exception;
  ~SourceException() override;
};

// Where the files of a machine are: under "/", or under the folder where its disk is mounted.
class Root {
 public:
  Root() = default;
  explicit Root(std::string folder);

  // Whether it is the machine that this runs on.
  bool isThisMachine() const noexcept { return folder_.empty(); }
  // Where an absolute path is to be found.
  std::string path(std::string_view absolute) const { return folder_ + std::string(absolute); }

 private:
  std::string folder_;  // without '/' at its end
};

// What the plain file, or the file of the kernel, holds; nothing where there is none. Raises
// SourceException for anything else than a file and for more than `most` octets, std::system_error
// for what cannot be read. Waits for nobody.
std::optional<std::string> contentOf(const std::string& path, std::size_t most);

// The names in a folder in alphabetical order, without those that begin with a dot; none where
// there is no such folder. Raises std::system_error, SourceException for more than 200000.
std::vector<std::string> namesIn(const std::string& path);

// The path of what has the name in a folder.
std::string inFolder(std::string_view folder, std::string_view name);

// Whether it is an id as systemd writes those of boots and machines: 32 hexadecimal digits.
bool isId(std::string_view text) noexcept;

// The text without blanks and line ends at both ends.
std::string_view trimmed(std::string_view text) noexcept;

}  // namespace ResetCause
