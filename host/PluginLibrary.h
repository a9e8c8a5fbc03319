#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Host {

// A plug-in library in the process's memory, from load to unload.
//
// Its static objects announce types and MIB modules when it is loaded and withdraw them when it is
// unloaded: whatever was made of them has to be gone by then.
class PluginLibrary {
 public:
  // Raises StartError when the file cannot be loaded.
  explicit PluginLibrary(const std::string& file);
  PluginLibrary(const PluginLibrary&) = delete;
  PluginLibrary& operator=(const PluginLibrary&) = delete;
  ~PluginLibrary();

  // The address of an exported symbol, or null.
  void* symbol(const std::string& name) const;

  // The files to load: those given, or else the one that is installed with this program.
  static std::vector<std::string> filesOf(const std::vector<std::string>& given);
  // The one that is in the first of the directories that has it; in the first one where none has.
  static std::string fileIn(const std::vector<std::filesystem::path>& directories);

 private:
  void* const handle_;
};

}  // namespace Host
