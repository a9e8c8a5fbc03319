#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace ResetCause {

// Runs a command, found in PATH, to its end, with this program's standard streams. The exit status;
// 128 and the number of the signal that ended it; 127 where it cannot be run. The keys of a
// terminal end the command and not this program. Raises std::system_error.
int statusOf(const std::vector<std::string>& command);

// Becomes the command, found in PATH; returns where it cannot be run.
void become(const std::vector<std::string>& command);

// What the program at a path prints, without arguments, input, environment or standard error. What
// it leaves running in its group is killed. Raises SourceException where it ends with another
// status than 0, prints more than `most` octets, or is not done within `seconds`: it is killed
// then.
std::string outputOf(const std::string& path, std::size_t most, double seconds);

}  // namespace ResetCause
