#include "Kavra/FileDescriptor.h"

#include <unistd.h>

namespace Kavra {

FileDescriptor::~FileDescriptor() {
  if (fd_ >= 0) ::close(fd_);
}

}  // namespace Kavra
