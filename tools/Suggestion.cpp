#include "tools/Suggestion.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace Tools {

namespace {

// How many characters must be put in, left out or replaced to make one text of the other.
std::size_t distance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::optional<std::string> suggestionFor(const std::string& typed,
                                         const std::vector<std::string>& known) {
  std::optional<std::string> best;
  if (typed.size() < 2) return best;
  std::size_t fewest = typed.size() / 3 + 2;  // one more than are a slip
  for (const std::string& word : known) {
    const std::size_t changes = word.starts_with(typed) ? 0 : distance(typed, word);
    if (changes >= fewest) continue;
    fewest = changes;
    best = word;
  }
  return best;
}

std::string didYouMean(const std::optional<std::string>& suggestion) {
  return suggestion ? "; did you mean " + *suggestion + "?" : "";
}

}  // namespace Tools
