// Loads the plug-in and makes what it brings by name, as any agent process would.

#include <dlfcn.h>

#include <cstdio>

#include "Qel/Dir.h"
#include "Qel/Entity.h"
#include "Qel/Ptr.h"
#include "Qel/TypeNode.h"

namespace {

bool makes(const char* typeName) {
  const auto root = Qel::make<Qel::Dir>("");
  return Qel::typeNode(typeName) != nullptr && root->newEntityIs(typeName, "one") != nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  void* const plugin = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (plugin == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  for (const char* typeName : {"MiscSnmp::GeneralMib", "MiscSnmp::Agent::Root"}) {
    if (!makes(typeName)) {
      std::fprintf(stderr, "no %s\n", typeName);
      return 1;
    }
  }
  return dlclose(plugin);
}
