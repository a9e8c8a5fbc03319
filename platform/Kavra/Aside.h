#pragma once

#include <functional>

#include "Kavra/FileDescriptor.h"

namespace Kavra {

// Runs `work` on a thread of its own, beside the event loop's: for what may take long, or never
// end. Nobody waits for the thread. It takes none of the process's signals, and holds no counted
// object. `work` must outlast whoever asked for it, and raises nothing. Raises std::system_error
// when there is no thread to be had.
void runAside(std::function<void()> work);

// What such a thread, or whoever needs it, makes readable with eventfd_write(3). Raises
// std::system_error.
FileDescriptor newEvent();

}  // namespace Kavra
