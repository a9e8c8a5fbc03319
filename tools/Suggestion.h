#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Tools {

// What somebody who typed this word may have meant of those that there are: one that goes on where
// the word ends, else the one that takes the fewest changes of single characters; nothing when that
// would be another word rather than a slip.
std::optional<std::string> suggestionFor(const std::string& typed,
                                         const std::vector<std::string>& known);

// "; did you mean SUGGESTION?" for the end of an error, or empty where there is none.
std::string didYouMean(const std::optional<std::string>& suggestion);

}  // namespace Tools
