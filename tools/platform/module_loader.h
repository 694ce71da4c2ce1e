// A library loaded at run time by its path, as a host loads a plug-in.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace Veldrift {

// Unloaded by the destructor: nothing of it may be in use by then.
class LoadedModule {
 public:
  virtual ~LoadedModule() = default;

  // The exported function or object of this name; null if there is none.
  virtual void* FindSymbol(const char* name) const = 0;
};

struct ModuleOptions {
  // What the module is told when it asks the system for the user's roaming and local application
  // data. Only Windows has such questions, and no variables that answer them; elsewhere this does
  // nothing, since the environment decides.
  std::optional<std::filesystem::path> roamingFolder = {};
  std::optional<std::filesystem::path> localFolder = {};
};

// Null on failure, with the system's message in `error`.
std::unique_ptr<LoadedModule> LoadModule(const std::filesystem::path& path, std::string& error,
                                         const ModuleOptions& options = {});

}  // namespace Veldrift
