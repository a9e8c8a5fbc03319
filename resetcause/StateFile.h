#pragma once

#include <optional>
#include <string>

#include "Qel/Document.h"

namespace ResetCause {

// The small documents that this program keeps in its own folder, as JSON.

// Where they are, below the root.
inline constexpr char kStateFolder[] = "/var/lib/norvek-reset-cause";

// The document in a file; nothing where there is none. Raises SourceException, Qel::Exception or
// std::system_error for what cannot be taken.
std::optional<Qel::Document> readState(const std::string& path);

// Replaces the file as a whole, readable by all; it is on the disk when this returns. Makes the
// folder that it lies in. Raises std::system_error.
void writeState(const std::string& path, const std::string& text);

// Takes it away for good; false where there is none.
bool removeState(const std::string& path);

}  // namespace ResetCause
