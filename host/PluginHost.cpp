#include "host/PluginHost.h"

#include <memory>

#include "host/PluginLibrary.h"

namespace Host {
namespace {

OfferedContexts::Libraries load(const std::vector<std::string>& files) {
  OfferedContexts::Libraries libraries;
  for (const auto& file : files) libraries.push_back(std::make_unique<PluginLibrary>(file));
  return libraries;
}

}  // namespace

PluginHost::PluginHost(const std::vector<std::string>& files, const StateDatabase& database,
                       const std::string& cellType, const std::vector<std::string>& contexts)
    : libraries_(load(files)), tree_(database, cellType), contexts_(contexts, libraries_) {}

}  // namespace Host
