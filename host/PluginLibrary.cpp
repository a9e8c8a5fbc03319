#include "host/PluginLibrary.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <system_error>

#include "host/Errors.h"

namespace Host {
namespace {

constexpr auto kFile = "libMiscSnmp.so";

void* load(const std::string& file) {
  void* handle = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) throw StartError(fmt::format("cannot load the plug-in: {}", ::dlerror()));
  return handle;
}

}  // namespace

PluginLibrary::PluginLibrary(const std::string& file) : handle_(load(file)) {}

PluginLibrary::~PluginLibrary() { ::dlclose(handle_); }

void* PluginLibrary::symbol(const std::string& name) const {
  return ::dlsym(handle_, name.c_str());
}

std::vector<std::string> PluginLibrary::filesOf(const std::vector<std::string>& given) {
  if (!given.empty()) return given;
  // Named in full: the search path of a program is not followed by every loader.
  std::error_code error;
  const auto directory = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
  return {fileIn({directory, directory / "../lib", directory / "../" NORVEK_PLUGIN_DIRECTORY})};
}

std::string PluginLibrary::fileIn(const std::vector<std::filesystem::path>& directories) {
  std::error_code error;
  for (const auto& directory : directories) {
    const auto file = directory / kFile;
    if (std::filesystem::exists(file, error)) return file.lexically_normal().string();
  }
  return (directories.front() / kFile).string();
}

}  // namespace Host
