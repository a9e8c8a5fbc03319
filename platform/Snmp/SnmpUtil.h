#pragma once

#include "Qel/Dir.h"
#include "Qel/Entity.h"
#include "Qel/Ptr.h"

namespace SnmpUtil {

// Names the directory below which the agent's entities stand. The agent hands it over before it
// offers contexts, and lets go (null) before it unloads the modules whose entities stand there.
void rootIs(const Qel::Ptr<Qel::Dir>& root);

// The entity at `path` below the agent's root, or null when there is none, or no root.
Qel::Ptr<Qel::Entity> getEntityRelative(const char* path);

}  // namespace SnmpUtil
