#pragma once

#include <exception>

namespace Qel {

// For work that has to be done whole although parts of it fail: keeps the first error of the parts,
// drops later ones, and raises it at the end.
class FirstError {
 public:
  template <class Part>
  void keepOf(const Part& part) {
    try {
      part();
    } catch (...) {
      if (!error_) error_ = std::current_exception();
    }
  }
  // Nothing where no part failed.
  void raise() const {
    if (error_) std::rethrow_exception(error_);
  }

 private:
  std::exception_ptr error_;
};

}  // namespace Qel
