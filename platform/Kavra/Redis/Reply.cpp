#include "Kavra/Redis/Reply.h"

#include <cstddef>

namespace Kavra::Redis {

std::string Reply::description() const {
  constexpr const char* kKinds[] = {"nothing",  "an integer", "a status",
                                    "an error", "a text",     "an array"};
  const std::string name = kKinds[static_cast<std::size_t>(kind)];
  return kind == Kind::error ? name + ": " + text : name;
}

}  // namespace Kavra::Redis
