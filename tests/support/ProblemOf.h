#pragma once

#include <string>

namespace support {

// What `work` raises, an Error, as text; "nothing" when it raises none.
template <class Error, class Work>
std::string problemOf(const Work& work) {
  try {
    work();
  } catch (const Error& error) {
    return error.what();
  }
  return "nothing";
}

}  // namespace support
