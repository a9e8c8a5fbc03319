#pragma once

#include <csignal>

namespace ResetCause {

// While one lives, a page of a mapped file that cannot be read, because the file was cut or its
// disk fails, reads as zeros. It would end the program otherwise. One lives at a time.
class LostPages {
 public:
  LostPages();
  LostPages(const LostPages&) = delete;
  LostPages& operator=(const LostPages&) = delete;
  ~LostPages();

  // Whether there were any.
  bool any() const noexcept;

 private:
  struct sigaction before_ {};
};

}  // namespace ResetCause
