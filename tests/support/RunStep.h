#pragma once

#include "Qel/Document.h"

namespace support {

// For a change of a document whose handlers raise nothing.
inline void runStep(const Qel::DocumentCodec::Step& step) { step(); }

}  // namespace support
