// A library loaded at run time by its path.
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

// The export `symbol` of a library of this file name that somebody else has loaded already; it is
// never loaded from here. Null if the library or the export isn't there.
void* FindLoadedSymbol(const std::string& fileName, const char* symbol);

// Keeps the library that holds this code loaded until the process ends, whoever unloads it: what
// the process calls at any time, such as a crash handler, must never point into memory that is
// gone. Loading the library again finds its statics as they were. In the executable itself it does
// nothing. False: the system refused.
bool PinThisModule();

}  // namespace Veldrift
