#include "resetcause/LostPages.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

namespace ResetCause {

namespace {

volatile std::sig_atomic_t pagesWereLost = 0;
std::uintptr_t pageOctets = 4096;

void giveZeros(int signal, siginfo_t* info, void* /*context*/) {
  const auto at = reinterpret_cast<std::uintptr_t>(info->si_addr);
  void* const page = reinterpret_cast<void*>(at - at % pageOctets);
  constexpr int kFlags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED;
  if (info->si_code == BUS_ADRERR &&
      ::mmap(page, pageOctets, PROT_READ, kFlags, -1, 0) != MAP_FAILED) {
    pagesWereLost = 1;
    return;
  }
  // It happens again at once, and ends the program.
  ::signal(signal, SIG_DFL);
}

}  // namespace

LostPages::LostPages() {
  pagesWereLost = 0;
  pageOctets = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
  struct sigaction action {};
  action.sa_sigaction = giveZeros;
  action.sa_flags = SA_SIGINFO;
  ::sigaction(SIGBUS, &action, &before_);
}

LostPages::~LostPages() { ::sigaction(SIGBUS, &before_, nullptr); }

bool LostPages::any() const noexcept { return pagesWereLost != 0; }

}  // namespace ResetCause
